#include "sim/heardcheck.h"

#include "sim/sbcstream.h"

#include <algorithm>

namespace sim {

namespace {

/// Where each packet's PCM begins in what decoding all of them gives, and at the end its length.
QList<qsizetype> packetStarts(const QList<QByteArray> &packets, qsizetype decodedSize)
{
    constexpr int FrameCountOffset = 12;
    qsizetype frames = 0;
    QList<qsizetype> starts;
    for (const QByteArray &packet : packets) {
        starts.append(frames);
        frames += packet.at(FrameCountOffset) & 0xF;
    }
    for (qsizetype &start : starts)
        start = start * decodedSize / std::max<qsizetype>(frames, 1); // all frames are alike
    starts.append(decodedSize);
    return starts;
}

/// Walks through what was heard a packet at a time and looks for each further on in what was decoded.
void findGaps(const QByteArray &decoded, const QList<qsizetype> &starts, const QByteArray &heard, HeardCheck &check)
{
    const auto isAt = [&](int packet, qsizetype position) {
        const auto size = static_cast<int>(starts.at(packet + 1) - starts.at(packet));
        return decoded.mid(static_cast<int>(starts.at(packet)), size) == heard.mid(static_cast<int>(position), size);
    };
    const auto count = static_cast<int>(starts.size()) - 1;
    qsizetype position = 0;
    for (int packet = 0; packet < count && position < heard.size(); ++packet) {
        int found = packet;
        while (found < count && !isAt(found, position))
            ++found;
        if (found == count) {
            ++check.wrongPackets;
        } else if (found > packet) {
            ++check.gaps;
            check.missingPackets += found - packet;
            packet = found;
        }
        position += starts.at(packet + 1) - starts.at(packet);
    }
}

} // namespace

HeardCheck checkHeard(const QList<QByteArray> &packets, const QByteArray &heard)
{
    HeardCheck check;
    const QByteArray decoded = decodeSbc(packets);
    if (heard.isEmpty() || decoded.isEmpty())
        return check;

    const QList<qsizetype> starts = packetStarts(packets, decoded.size());
    const auto first = static_cast<int>(starts.indexOf(decoded.size() - heard.size()));
    if (first >= 0 && (decoded.endsWith(heard) || decodeSbc(packets.mid(first)) == heard)) {
        check.exact = true;
        check.firstPacket = first;
        return check;
    }
    findGaps(decoded, starts, heard, check);
    return check;
}

QString HeardCheck::text() const
{
    if (exact && firstPacket == 0)
        return QStringLiteral("bit-exact to decoding the same frames, without a gap");
    if (exact)
        return QStringLiteral(
                   "bit-exact to decoding the same frames from packet %1 on, where the player joined; no gap "
                   "after that")
            .arg(firstPacket);
    return QStringLiteral("NOT the same as decoding the same frames: %1 gaps with %2 packets missing, %3 packets wrong")
        .arg(gaps)
        .arg(missingPackets)
        .arg(wrongPackets);
}

} // namespace sim
