// SPDX-License-Identifier: MIT
#include "soak/soakmaterial.h"

#include "sim/sbcstream.h"

#include <algorithm>

namespace sim {

namespace {

constexpr int Mtu = 672;
constexpr unsigned MusicSeed = 1;

/// Returns noise, so that all sections differ.
QByteArray noise(int size, SoakRandom &random)
{
    QByteArray bytes;
    for (int i = 0; i < size; ++i)
        bytes.append(static_cast<char>(random.below(256)));
    return bytes;
}

SoakFormat sbcFormat(const SbcFormat &format)
{
    constexpr int Seconds = 4;
    SoakRandom random(MusicSeed);
    const QByteArray pcm = noise(2 * format.channels() * format.sampleRate * Seconds, random);
    return {SoakFormat::Sbc, format.configuration(),
            QStringLiteral("pcm/%1/16/%2").arg(format.sampleRate).arg(format.channels()), encodeSbc(pcm, format, Mtu)};
}

SoakFormat aacFormat(const QByteArray &configuration, const char *urlFormat)
{
    constexpr int Packets = 200;
    constexpr int MaxPayload = 640; // fits into one packet with the headers
    SoakRandom random(MusicSeed);
    SoakFormat result{SoakFormat::Aac, QByteArray::fromHex(configuration), QString::fromLatin1(urlFormat), {}};
    for (std::uint16_t i = 0; i < Packets; ++i)
        result.packets.append(aacPacket(noise(1 + random.below(MaxPayload), random), i));
    return result;
}

} // namespace

QList<SoakFormat> soakFormats()
{
    using Mode = SbcFormat::Mode;
    return {
        sbcFormat({44100, Mode::JointStereo, 16, 8, false, 53}),
        sbcFormat({48000, Mode::JointStereo, 16, 8, false, 51}),
        sbcFormat({44100, Mode::DualChannel, 12, 8, true, 38}),
        sbcFormat({48000, Mode::Stereo, 8, 4, false, 30}),
        sbcFormat({32000, Mode::Stereo, 16, 8, true, 35}),
        sbcFormat({16000, Mode::Mono, 4, 4, false, 18}),
        aacFormat("80010483e800", "aac/44100/16/2"),
        aacFormat("800084000000", "aac/48000/16/2"),
    };
}

QByteArray damaged(QByteArray packet, SoakRandom &random)
{
    const auto size = static_cast<int>(packet.size());
    const int kind = random.below(3);
    if (kind == 0) {
        packet.truncate(random.below(size));
    } else if (kind == 1) {
        const int place = random.below(size);
        packet[place] = static_cast<char>(packet.at(place) ^ 1 << random.below(8));
    } else {
        packet.append(QByteArray(std::min(20, Mtu - size), '\x9D'));
    }
    return packet;
}

} // namespace sim
