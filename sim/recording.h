// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace sim {

/// A recording as 16-bit native-endian interleaved PCM.
struct Recording {
    int sampleRate = 0;
    int channels = 0;
    QByteArray pcm;
    double seconds() const
    {
        return channels == 0 ? 0 : static_cast<double>(pcm.size()) / (2.0 * channels * sampleRate);
    }
};

/// Reads audio files with libsndfile and joins them into one stereo recording. Mono is duplicated; channels beyond the
/// second are ignored. The sampling rate is that of the first file, or 44100 Hz when SBC does not support it. On
/// failure the recording is empty and `error` has the reason.
Recording readRecordings(const QStringList &paths, QString &error);

/// Writes a WAV file. Returns false on failure.
bool writeWav(const QString &path, const Recording &recording);

/// Returns the signal-to-noise ratio of `heard` against `original` in dB. Both must have the same number of channels.
/// Compensates the delay of SBC with 8 subbands. Returns 0 when either is empty, infinity when they are equal.
double snrDb(const Recording &original, const Recording &heard);

} // namespace sim
