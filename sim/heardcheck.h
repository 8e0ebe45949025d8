// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace sim {

/// The result of comparing the player's audio with the decoded packets of an SBC stream.
struct HeardCheck {
    /// True when the audio equals the decoded packets from `firstPacket` to the last. False when there is no audio.
    bool exact = false;
    /// The first packet (from 0) that the player received. Valid if `exact`.
    int firstPacket = 0;
    /// The result in words.
    QString text;
};

/// Compares `heard`, 16-bit PCM, with `packets` of encodeSbc(). A player may join late: its audio may then begin with a
/// fresh decoder, or with one that has decoded the earlier packets.
HeardCheck checkHeard(const QList<QByteArray> &packets, const QByteArray &heard);

} // namespace sim
