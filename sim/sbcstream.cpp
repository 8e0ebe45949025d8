// SPDX-License-Identifier: MIT
#include "sim/sbcstream.h"

#include <QDataStream>
#include <QIODevice>

#include <algorithm>
#include <sbc/sbc.h>

namespace sim {

namespace {

constexpr int RtpHeaderSize = 12;
constexpr int PayloadOffset = RtpHeaderSize + 1;
constexpr int MaxFramesPerPacket = 15; // the count has four bits
constexpr int BytesPerSample = 2;
constexpr size_t MaxFramePcm = 16 * 8 * 2 * BytesPerSample; // blocks, subbands, channels

class Sbc {
public:
    Sbc() { sbc_init(&sbc, 0); }
    ~Sbc() { sbc_finish(&sbc); }
    Sbc(const Sbc &) = delete;
    Sbc &operator=(const Sbc &) = delete;

    sbc_t sbc;
};

/// Returns the bit of choice `index` of `count` choices. The last choice has bit 0. Returns 0 for `index` == `count`.
unsigned choiceBit(int index, int count)
{
    return (1U << (count - 1)) >> index;
}

/// Returns a header (RFC 3550, 5.1) with version 2, payload type 96 (the first dynamic one), and without padding,
/// extension or contributing sources.
QByteArray rtpHeader(std::uint16_t sequence, std::uint32_t timestamp)
{
    constexpr std::uint16_t VersionAndType = 0x8060;
    constexpr std::uint32_t Source = 1;
    QByteArray header;
    QDataStream(&header, QIODevice::WriteOnly) << VersionAndType << sequence << timestamp << Source; // big-endian
    return header;
}

/// Returns SBC's number of a sampling rate, or 4 for an unsupported rate.
int rateIndex(int sampleRate)
{
    const int rates[] = {16000, 32000, 44100, 48000};
    return static_cast<int>(std::find(std::begin(rates), std::end(rates), sampleRate) - std::begin(rates));
}

} // namespace

QByteArray SbcFormat::configuration() const
{
    const unsigned octets[] = {
        choiceBit(rateIndex(sampleRate), 4) << 4 | choiceBit(static_cast<int>(mode), 4),
        choiceBit(blocks / 4 - 1, 4) << 4 | choiceBit(subbands / 4 - 1, 2) << 2 | (snr ? 2U : 1U),
        2U,
        static_cast<unsigned>(bitpool),
    };
    QByteArray bytes;
    for (const unsigned octet : octets)
        bytes.append(static_cast<char>(octet));
    return bytes;
}

QList<QByteArray> encodeSbc(const QByteArray &pcm, const SbcFormat &format, int mtu)
{
    Sbc encoder;
    encoder.sbc.frequency = static_cast<uint8_t>(rateIndex(format.sampleRate));
    encoder.sbc.mode = static_cast<uint8_t>(format.mode);
    encoder.sbc.blocks = static_cast<uint8_t>(format.blocks / 4 - 1);
    encoder.sbc.subbands = static_cast<uint8_t>(format.subbands / 4 - 1);
    encoder.sbc.allocation = format.snr ? SBC_AM_SNR : SBC_AM_LOUDNESS;
    encoder.sbc.bitpool = static_cast<uint8_t>(format.bitpool);

    const auto frameLength = static_cast<int>(sbc_get_frame_length(&encoder.sbc));
    const auto framePcm = static_cast<int>(sbc_get_codesize(&encoder.sbc));
    const int framesPerPacket = std::min(MaxFramesPerPacket, (mtu - PayloadOffset) / frameLength);

    QList<QByteArray> packets;
    QByteArray rest = pcm;
    rest.append((framePcm - static_cast<int>(pcm.size() % framePcm)) % framePcm, '\0');
    const auto frames = static_cast<int>(rest.size() / framePcm);
    const int samplesPerFrame = format.blocks * format.subbands;
    QByteArray frame(frameLength, '\0');
    for (int first = 0; first < frames && framesPerPacket > 0; first += framesPerPacket) {
        const int count = std::min(framesPerPacket, frames - first);
        QByteArray packet = rtpHeader(static_cast<std::uint16_t>(packets.size()),
                                      static_cast<std::uint32_t>(first) * static_cast<std::uint32_t>(samplesPerFrame));
        packet.append(static_cast<char>(count));
        for (int i = first; i < first + count; ++i) {
            ssize_t written = 0;
            sbc_encode(&encoder.sbc, rest.constData() + static_cast<ptrdiff_t>(i) * framePcm,
                       static_cast<size_t>(framePcm), frame.data(), static_cast<size_t>(frameLength), &written);
            packet.append(frame.constData(), static_cast<int>(written));
        }
        packets.append(packet);
    }
    return packets;
}

QByteArray decodeSbc(const QList<QByteArray> &packets)
{
    Sbc decoder;
    QByteArray pcm;
    char frame[MaxFramePcm];
    for (const QByteArray &packet : packets) {
        const char *in = packet.constData() + PayloadOffset;
        auto remaining = static_cast<ssize_t>(packet.size()) - PayloadOffset;
        while (remaining > 0) {
            size_t written = 0;
            const ssize_t consumed = sbc_decode(&decoder.sbc, in, static_cast<size_t>(remaining), frame, sizeof frame,
                                                &written);
            if (consumed <= 0)
                break;
            pcm.append(frame, static_cast<int>(written));
            in += consumed;
            remaining -= consumed;
        }
    }
    return pcm;
}

double packetSeconds(const QByteArray &packet, const SbcFormat &format)
{
    const int frames = packet.size() < PayloadOffset ? 0 : packet.at(RtpHeaderSize) & 0xF;
    return static_cast<double>(frames * format.blocks * format.subbands) / format.sampleRate;
}

QByteArray aacPacket(const QByteArray &payload, std::uint16_t sequence)
{
    constexpr std::uint32_t SamplesPerFrame = 1024;
    QByteArray packet = rtpHeader(sequence, sequence * SamplesPerFrame);
    packet.append("\x47\xFC\x00\x00\xB0\x90\x80\x03\x00", 9); // AAC LC, 44100 Hz, two channels
    packet.append(static_cast<int>(payload.size() / 0xFF), '\xFF');
    packet.append(static_cast<char>(payload.size() % 0xFF));
    packet.append(payload);
    return packet;
}

} // namespace sim
