// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace sim {

/// What a player heard of an SBC stream, held against decoding the same packets.
struct HeardCheck {
    /// Every byte is as decoded, without a gap, from packet `firstPacket` to the last; false when nothing was heard.
    bool exact = false;
    /// The packet (from 0) that the player joined at, if `exact`.
    int firstPacket = 0;
    /// The result as a sentence for a person.
    QString text;
};

/// Compares `heard`, 16-bit PCM, with `packets` of encodeSbc. A player that joins late is recognised whether the
/// decoder ran before it came or started with it.
HeardCheck checkHeard(const QList<QByteArray> &packets, const QByteArray &heard);

} // namespace sim
