// SPDX-License-Identifier: MIT
#pragma once

#include "codec/codec.h"

/// MPEG-1,2 audio (A2DP 1.3.2, 4.4) with fixed answers: the negotiation without the audio. It is here for a player that
/// takes mp3, and for the day when its packets are passed on. Until then no endpoint offers it, because a phone that
/// chose it would not be heard.
class CodecMP3 final : public Codec {
public:
    CodecMP3();
    ~CodecMP3() override;

    std::uint8_t type() override { return 1; }
    QString formatName() override { return QStringLiteral("mp3"); }
    QByteArray capabilities() override;
    /// The phone's capabilities, unchanged.
    QByteArray selectConfiguration(const QByteArray &peerCapabilities) override;
    /// 44100 Hz, 16 bits, two channels, whatever is given.
    void setConfiguration(const QByteArray &configuration) override;
    void prepare(int readMtu) override;
    /// Drops the packet.
    void processPacket(const char *packet, int length, QIODevice *out) override;
};
