// SPDX-License-Identifier: MIT
#pragma once

#include "tests/sbc/reference.h"

#include <QByteArray>

/// The audio that a packet has to yield.
namespace heard {

/// What libsbc makes of its frames, up to the first that does not decode. `decoder` has decoded the packets before.
inline QByteArray ofSbc(const QByteArray &packet, Reference &decoder)
{
    constexpr int PayloadOffset = 13; // RTP header and frame count
    constexpr std::size_t MostPcm = 512;
    QByteArray pcm;
    const auto *in = reinterpret_cast<const std::uint8_t *>(packet.constData());
    for (int at = PayloadOffset; at < packet.size();) {
        char ofFrame[MostPcm];
        std::size_t written = 0;
        const auto left = static_cast<std::size_t>(packet.size() - at);
        const int length = decoder.decode(in + at, left, ofFrame, sizeof ofFrame, written);
        if (length <= 0)
            break;
        pcm.append(ofFrame, static_cast<int>(written));
        at += length;
    }
    return pcm;
}

/// Its payload, if all of it is there, behind the header of an ADTS frame (ISO/IEC 13818-7, 6.2): AAC LC, 44100 Hz, two
/// channels, no checksum.
inline QByteArray ofAac(const QByteArray &packet)
{
    constexpr int LengthOffset = 21; // RTP header and stream configuration
    constexpr int HeaderSize = 7;
    constexpr int MostFrame = 0x1FFF; // its length has 13 bits
    int length = 0;
    for (int at = LengthOffset; at < packet.size(); ++at) {
        const auto octet = static_cast<std::uint8_t>(packet.at(at));
        length += octet;
        if (octet == 0xFF) // one more is added
            continue;
        const QByteArray payload = packet.mid(at + 1, length);
        const int frame = HeaderSize + length;
        if (payload.size() != length || frame > MostFrame)
            break;
        const int header[HeaderSize] = {0xFF, 0xF1, 0x50, 0x80 | frame >> 11, frame >> 3, frame << 5 | 0x1F, 0xFC};
        QByteArray adts;
        for (const int byte : header)
            adts.append(static_cast<char>(byte));
        return adts + payload;
    }
    return {};
}

} // namespace heard
