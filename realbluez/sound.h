// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace realbluez {

/// The packets that a phone sent in one stream.
struct SentStream {
    QList<QByteArray> packets; ///< from sim::encodeSbc()
    bool complete = true;      ///< false when the stream was cut off, so that the player received only its beginning
};

/// Returns `seconds` of 16-bit stereo PCM at 44100 Hz. The tones rise all the time, so that no two sections of a sound
/// are the same. Sounds with different `number` differ as well.
QByteArray sound(int seconds, int number);

/// Returns the number of the next stream, from 0. The streams of a run are in the shared folder, in playing order.
int nextSound();
/// Saves the packets of a stream in the shared folder, under the next number.
void saveSent(const SentStream &sent);
/// Saves the audio that the player received.
void saveHeard(const QByteArray &pcm, int number);

/// Compares the sent and received audio of each stream in `folder`, and prints both durations and the result. Returns
/// false when audio is missing, wrong or in excess, or when there is no stream.
bool compareStreams(const QString &folder);

} // namespace realbluez
