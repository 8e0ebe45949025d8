#include "soak/soakmaterial.h"

#include <algorithm>
#include <cmath>
#include <sbc/sbc.h>

namespace sim {

namespace {

constexpr int Mtu = 672;
constexpr int RtpHeaderSize = 12;
constexpr int PayloadOffset = RtpHeaderSize + 1;
constexpr uchar SbcCodec = 0;
constexpr int SyncWord = 0x9C;
constexpr unsigned MusicSeed = 1;

/// A rising tone with noise over it: no stretch of it is like another.
QByteArray music(int seconds, const SbcFormat &format)
{
    constexpr double Amplitude = 9000;
    constexpr int Noise = 3000;
    SoakRandom random(MusicSeed);
    QByteArray pcm;
    for (int i = 0; i < seconds * format.sampleRate; ++i) {
        for (int channel = 1; channel <= format.channels(); ++channel) {
            const double tone = Amplitude * std::sin(i * (0.02 + i * 1e-7) * channel);
            const auto sample = static_cast<qint16>(static_cast<int>(tone) + random.between(-Noise, Noise));
            pcm.append(reinterpret_cast<const char *>(&sample), sizeof sample);
        }
    }
    return pcm;
}

SoakFormat sbcFormat(const SbcFormat &format)
{
    constexpr int Seconds = 4;
    SoakFormat result{SbcCodec,
                      format.configuration(),
                      QStringLiteral("pcm/%1/16/%2").arg(format.sampleRate).arg(format.channels()),
                      {}};
    const QList<QByteArray> packets = encodeSbc(music(Seconds, format), format, Mtu);
    for (const QByteArray &packet : packets)
        result.packets.append({packet, packet.at(RtpHeaderSize) & 0xF, {}, packetSeconds(packet, format)});
    return result;
}

/// ISO/IEC 13818-7, 6.2: a frame of AAC LC, 44100 Hz, two channels, without checksum.
QByteArray adtsFrame(const QByteArray &payload)
{
    const unsigned length = 7 + static_cast<unsigned>(payload.size());
    QByteArray frame("\xFF\xF1\x50", 3);
    frame.append(static_cast<char>(0x80U | length >> 11));
    frame.append(static_cast<char>(length >> 3 & 0xFFU));
    frame.append(static_cast<char>((length << 5 & 0xFFU) | 0x1FU));
    frame.append('\xFC');
    return frame + payload;
}

SoakFormat aacFormat(const QByteArray &configuration, const char *played, int sampleRate)
{
    constexpr int Packets = 200;
    constexpr double SamplesAFrame = 1024;
    constexpr int MostPayload = 640; // with the headers in one packet
    SoakRandom random(MusicSeed);
    SoakFormat result{2, QByteArray::fromHex(configuration), QString::fromLatin1(played), {}};
    for (int i = 0; i < Packets; ++i) {
        QByteArray payload;
        const int size = random.between(1, MostPayload);
        for (int byte = 0; byte < size; ++byte)
            payload.append(static_cast<char>(random.below(256)));
        result.packets.append(
            {aacPacket(payload, static_cast<std::uint16_t>(i)), 0, adtsFrame(payload), SamplesAFrame / sampleRate});
    }
    return result;
}

SoakPacket damagedSbc(const SoakPacket &packet, SoakRandom &random)
{
    const int frameLength = (static_cast<int>(packet.bytes.size()) - PayloadOffset) / packet.frames;
    const int frame = random.below(packet.frames); // the first that is damaged
    const int start = PayloadOffset + frame * frameLength;
    SoakPacket result = packet;
    switch (random.below(5)) {
    case 0: // ends in the midst of a frame
        result.bytes.truncate(start + random.between(1, frameLength - 1));
        break;
    case 1: // no frame at that place
        result.bytes[start] = static_cast<char>(random.below(SyncWord));
        break;
    case 2: // its checksum is wrong
        result.bytes[start + 3] = static_cast<char>(result.bytes.at(start + 3) ^ (1 << random.below(8)));
        break;
    case 3: // ends in its own header
        result.bytes.truncate(random.between(1, PayloadOffset));
        result.frames = 0;
        result.seconds = 0;
        return result;
    default: // something stands behind the last frame
        result.bytes.append(QByteArray(std::min(20, Mtu - static_cast<int>(result.bytes.size())), '\x9D'));
        return result;
    }
    result.frames = frame;
    result.seconds = packet.seconds * frame / packet.frames;
    return result;
}

SoakPacket damagedAac(const SoakPacket &packet, SoakRandom &random)
{
    SoakPacket result = packet;
    switch (random.below(3)) {
    case 0:
        result.bytes.chop(1); // the payload is cut
        break;
    case 1:
        result.bytes.truncate(random.between(1, 21)); // so is what stands before its length
        break;
    default: // something stands behind the payload
        result.bytes.append(QByteArray(std::min(9, Mtu - static_cast<int>(result.bytes.size())), '\x11'));
        return result;
    }
    result.adts.clear();
    result.seconds = 0;
    return result;
}

} // namespace

QList<SoakFormat> soakFormats()
{
    using Mode = SbcFormat::Mode;
    const SbcFormat sbc[] = {
        {44100, Mode::JointStereo, 16, 8, false, 53}, {48000, Mode::JointStereo, 16, 8, false, 51},
        {44100, Mode::Stereo, 16, 8, true, 35},       {44100, Mode::DualChannel, 12, 8, true, 38},
        {48000, Mode::Stereo, 8, 4, false, 30},       {32000, Mode::Mono, 8, 4, true, 20},
        {16000, Mode::Mono, 4, 4, false, 18},         {44100, Mode::Mono, 16, 8, false, 31},
    };
    QList<SoakFormat> formats;
    for (const SbcFormat &format : sbc)
        formats.append(sbcFormat(format));
    formats.append(aacFormat("80010483e800", "aac/44100/16/2", 44100));
    formats.append(aacFormat("800084000000", "aac/48000/16/2", 48000));
    return formats;
}

SoakPacket damaged(const SoakPacket &packet, uchar codec, SoakRandom &random)
{
    return codec == SbcCodec ? damagedSbc(packet, random) : damagedAac(packet, random);
}

struct SoakDecoder::Sbc {
    Sbc() { sbc_init(&sbc, 0); }
    ~Sbc() { sbc_finish(&sbc); }
    Sbc(const Sbc &) = delete;
    Sbc &operator=(const Sbc &) = delete;

    sbc_t sbc{};
};

SoakDecoder::SoakDecoder() : sbc_(std::make_unique<Sbc>()) {}

SoakDecoder::~SoakDecoder() = default;

QByteArray SoakDecoder::heardOf(const SoakPacket &packet)
{
    if (packet.frames == 0)
        return packet.adts;
    constexpr size_t MostPcm = 512;
    QByteArray heard;
    const char *in = packet.bytes.constData() + PayloadOffset;
    const char *const end = packet.bytes.constData() + packet.bytes.size();
    for (int frame = 0; frame < packet.frames; ++frame) {
        const int subbands = (static_cast<unsigned char>(in[1]) & 1U) != 0 ? 8 : 4;
        if (subbands_ != 0 && subbands_ != subbands)
            sbc_ = std::make_unique<Sbc>();
        subbands_ = subbands;
        char pcm[MostPcm];
        size_t written = 0;
        const ssize_t consumed = sbc_decode(&sbc_->sbc, in, static_cast<size_t>(end - in), pcm, sizeof pcm, &written);
        if (consumed <= 0)
            qFatal("The soak's own music does not decode: %d", static_cast<int>(consumed));
        heard.append(pcm, static_cast<int>(written));
        in += consumed;
    }
    return heard;
}

} // namespace sim
