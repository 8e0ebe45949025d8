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

/// Reads files that libsndfile reads, one after another, as two channels: of more the first two, one twice. The
/// sampling rate is that of the first file, or 44100 Hz when SBC does not have it. On failure the recording is empty
/// and `error` says why.
Recording readRecordings(const QStringList &paths, QString &error);

/// Writes a WAV file; false on failure.
bool writeWav(const QString &path, const Recording &recording);

/// Signal-to-noise ratio in dB of `heard` against `original`, both of the same number of channels, when `heard` has
/// been through SBC with 8 subbands, whose delay is not counted as noise; 0 when either is empty, infinity when they
/// are equal.
double snrDb(const Recording &original, const Recording &heard);

} // namespace sim
