// SPDX-License-Identifier: MIT
#pragma once

#include "codec/codec.h"

/// The codec MPEG-1,2 audio (A2DP 1.3.2, 4.4). It negotiates with fixed values and drops all packets. It prepares for
/// players that support mp3. No endpoint offers this codec yet, because a phone that chose it would be silent.
class CodecMP3 final : public Codec {
public:
    CodecMP3();
    ~CodecMP3() override;

    std::uint8_t type() override { return 1; }
    QString formatName() override { return QStringLiteral("mp3"); }
    QByteArray capabilities() override;
    /// Returns the phone's capabilities unchanged.
    QByteArray selectConfiguration(const QByteArray &peerCapabilities) override;
    /// Ignores the configuration and sets 44100 Hz, 16 bits and two channels.
    void setConfiguration(const QByteArray &configuration) override;
    void prepare(int readMtu) override;
    /// Drops the packet.
    void processPacket(const char *packet, int length, QIODevice *out) override;
};
