// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace realbluez {

/// The packets that a phone sent in one stream.
struct Sent {
    QList<QByteArray> packets; ///< of sim::encodeSbc
    bool whole = true;         ///< false: the stream was cut off, so that only its beginning was heard
};

/// 16-bit stereo PCM of 44100 Hz, `seconds` of it: tones that rise all the time, so that no two moments of one sound,
/// and no two sounds of different `number`, are alike.
QByteArray sound(int seconds, int number);

/// The streams of a run, in the order in which they were played and heard, lie in the shared folder. These give the
/// number that comes next, from 0 on, and put a stream there.
int nextSound();
void saveSent(const Sent &sent);
void saveHeard(const QByteArray &pcm, int number);

/// Prints for each stream in `folder` how much was sent, how much heard, and whether that is the same; false when
/// something is missing, wrong, or more than was sent.
bool compareStreams(const QString &folder);

} // namespace realbluez
