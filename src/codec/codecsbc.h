#pragma once

#include "codec/codec.h"

#include <memory>
#include <sbc/sbc.h>

/// SBC, decoded by libsbc to 16-bit signed PCM in host byte order, channels interleaved (A2DP 1.3.2, 4.3 and 12).
class CodecSBC final : public Codec {
public:
    CodecSBC();
    ~CodecSBC();

    std::uint8_t type() override { return 0; }
    QString formatName() override { return QStringLiteral("pcm"); }
    QByteArray capabilities() override;
    QByteArray selectConfiguration(const QByteArray &peerCapabilities) override;
    void setConfiguration(const QByteArray &configuration) override;
    void prepare(int readMtu) override;
    /// The frames of one packet, decoded by the one decoder that lives as long as the codec. It starts afresh where the
    /// number of subbands changes.
    [[gnu::hot]] void processPacket(const char *packet, int length, QIODevice *out) override;

private:
    [[gnu::hot]] void startDecoderFor(int subbands);

    sbc_t decoder_{};
    int startedSubbands_ = 0; ///< of the frames that the decoder was given; 0 before the first
    std::unique_ptr<char[]> pcm_;
    size_t pcmSize_ = 0;
};
