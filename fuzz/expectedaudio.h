// SPDX-License-Identifier: MIT
#pragma once

#include "tests/sbc/reference.h"

#include <QByteArray>

/// Decodes the frames of an SBC packet with libsbc, up to the first bad frame. `decoder` must have decoded all earlier
/// packets of the stream.
inline QByteArray expectedPcm(const QByteArray &packet, Reference &decoder)
{
    constexpr int PayloadOffset = 13; // RTP header and frame count
    constexpr std::size_t MaxPcm = 512;
    QByteArray pcm;
    const auto *in = reinterpret_cast<const std::uint8_t *>(packet.constData());
    for (int at = PayloadOffset; at < packet.size();) {
        char ofFrame[MaxPcm];
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

/// Returns the payload of an AAC packet as an ADTS frame (ISO/IEC 13818-7, 6.2): AAC LC, 44100 Hz, two channels, no
/// checksum. Empty when the payload is incomplete or too long for a frame.
inline QByteArray expectedAdts(const QByteArray &packet)
{
    constexpr int LengthOffset = 21; // RTP header and stream configuration
    constexpr int HeaderSize = 7;
    constexpr int MaxFrame = 0x1FFF; // its length has 13 bits
    int length = 0;
    for (int at = LengthOffset; at < packet.size(); ++at) {
        const auto octet = static_cast<std::uint8_t>(packet.at(at));
        length += octet;
        if (octet == 0xFF) // the length continues in the next octet
            continue;
        const QByteArray payload = packet.mid(at + 1, length);
        const int frame = HeaderSize + length;
        if (payload.size() != length || frame > MaxFrame)
            break;
        const int header[HeaderSize] = {0xFF, 0xF1, 0x50, 0x80 | frame >> 11, frame >> 3, frame << 5 | 0x1F, 0xFC};
        QByteArray adts;
        for (const int byte : header)
            adts.append(static_cast<char>(byte));
        return adts + payload;
    }
    return {};
}
