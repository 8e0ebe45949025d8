// SPDX-License-Identifier: MIT
#pragma once

#include "codec/adtsheader.h"
#include "codec/codec.h"

#include <array>

/// The codec MPEG-2,4 AAC. It does not decode, but rewraps each packet's LATM payload as one ADTS frame (A2DP 1.3.2,
/// 4.5; RFC 3016; ISO/IEC 13818-7).
class CodecAAC final : public Codec {
public:
    CodecAAC();
    ~CodecAAC() override;

    std::uint8_t type() override { return 2; }
    QString formatName() override { return QStringLiteral("aac"); }
    QByteArray capabilities() override;
    QByteArray selectConfiguration(const QByteArray &peerCapabilities) override;
    /// Also logs the bit rate field. An unknown sampling frequency counts as 44100 Hz.
    void setConfiguration(const QByteArray &configuration) override;
    void prepare(int readMtu) override;
    /// A packet has an RTP header, 9 bytes of stream configuration, the payload length and the payload. The length is
    /// the sum of any number of bytes 0xFF and one smaller byte. Writes one ADTS frame and ignores bytes after the
    /// payload. Drops a packet whose payload is incomplete or longer than adts::MaxPayloadSize.
    [[gnu::hot]] void processPacket(const char *packet, int length, QIODevice *out) override;

private:
    std::array<char, adts::MaxFrameSize> frame_{};
};
