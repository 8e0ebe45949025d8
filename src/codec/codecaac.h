// SPDX-License-Identifier: MIT
#pragma once

#include "codec/adtsheader.h"
#include "codec/codec.h"

#include <array>

/// MPEG-2,4 AAC, not decoded: each packet's LATM payload is passed on as one ADTS frame (A2DP 1.3.2, 4.5; RFC 3016;
/// ISO/IEC 13818-7).
class CodecAAC final : public Codec {
public:
    CodecAAC();
    ~CodecAAC() override;

    std::uint8_t type() override { return 2; }
    QString formatName() override { return QStringLiteral("aac"); }
    QByteArray capabilities() override;
    QByteArray selectConfiguration(const QByteArray &peerCapabilities) override;
    /// Also logs the bit rate field.
    void setConfiguration(const QByteArray &configuration) override;
    void prepare(int readMtu) override;
    /// The packet: RTP header, 9 bytes of stream configuration, the payload length as any number of bytes 0xFF and one
    /// of less, summed up, then the payload. What follows it is ignored. One ADTS frame is written.
    [[gnu::hot]] void processPacket(const char *packet, int length, QIODevice *out) override;

private:
    std::array<char, adts::MaxFrameSize> frame_{};
};
