// SPDX-License-Identifier: MIT
#pragma once

#include "codec/codec.h"
#include "sbc/decoder.h"

#include <memory>

/// The codec SBC. It decodes to 16-bit signed PCM in host byte order, channels interleaved (A2DP 1.3.2, 4.3 and 12).
class CodecSBC final : public Codec {
public:
    CodecSBC();
    ~CodecSBC() override;

    std::uint8_t type() override { return 0; }
    QString formatName() override { return QStringLiteral("pcm"); }
    QByteArray capabilities() override;
    QByteArray selectConfiguration(const QByteArray &peerCapabilities) override;
    void setConfiguration(const QByteArray &configuration) override;
    void prepare(int readMtu) override;
    /// Decodes the frames of one packet. The decoder keeps its state between packets and between streams.
    [[gnu::hot]] void processPacket(const char *packet, int length, QIODevice *out) override;

private:
    sbc::Decoder decoder_;
    std::unique_ptr<char[]> pcm_;
    size_t pcmSize_ = 0;
};
