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
    int gaps = 0;           ///< places where packets are missing in the midst of what was heard
    int missingPackets = 0; ///< how many in all
    int wrongPackets = 0;   ///< packets' worth of PCM that is like no packet's from there on
    /// All of the above in a sentence for a person.
    QString text() const;
};

/// Compares `heard`, 16-bit PCM, with `packets` of encodeSbc. A player that joins late is recognised whether the
/// decoder ran before it came or started with it.
HeardCheck checkHeard(const QList<QByteArray> &packets, const QByteArray &heard);

} // namespace sim
