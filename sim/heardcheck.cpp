// SPDX-License-Identifier: MIT
#include "sim/heardcheck.h"

#include "sim/sbcstream.h"

#include <algorithm>

namespace sim {

HeardCheck checkHeard(const QList<QByteArray> &packets, const QByteArray &heard)
{
    const QByteArray decoded = decodeSbc(packets);
    const qsizetype packetSize = decodeSbc(packets.mid(0, 1)).size(); // only the last packet may be shorter
    HeardCheck check;
    if (heard.isEmpty() || packetSize == 0) {
        check.text = QStringLiteral("nothing at all");
        return check;
    }
    const qsizetype missed = decoded.size() - heard.size();
    if (missed >= 0 && missed % packetSize == 0) {
        check.firstPacket = static_cast<int>(missed / packetSize);
        check.exact = decoded.endsWith(heard) || decodeSbc(packets.mid(check.firstPacket)) == heard;
    }

    if (check.exact && check.firstPacket == 0) {
        check.text = QStringLiteral("bit-exact with a reference decoder, without a gap");
    } else if (check.exact) {
        check.text = QStringLiteral("bit-exact with a reference decoder from packet %1 on, where the player joined, "
                                    "without a gap")
                         .arg(check.firstPacket);
    } else {
        const auto *const differing = std::mismatch(heard.begin(), heard.end(), decoded.begin(), decoded.end()).first;
        check.text = QStringLiteral("DIFFERS from a reference decoder: %1 bytes instead of %2, first wrong byte in "
                                    "packet %3")
                         .arg(heard.size())
                         .arg(decoded.size())
                         .arg((differing - heard.begin()) / packetSize);
    }
    return check;
}

} // namespace sim
