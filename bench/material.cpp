// SPDX-License-Identifier: MIT
#include "bench/material.h"

#include <cmath>
#include <random>

namespace bench {

Material makeMaterial(const sim::SbcFormat &format, int mtu)
{
    constexpr int Seconds = 5;
    constexpr double Amplitude = 9000;
    constexpr double Noise = 1500;

    std::mt19937 random(1); // NOLINT: fixed seed, for the same sound in every run
    std::uniform_real_distribution<double> noise(-Noise, Noise);
    QByteArray pcm;
    for (int i = 0; i < Seconds * format.sampleRate; ++i) {
        for (int channel = 1; channel <= format.channels(); ++channel) {
            const auto sample = static_cast<qint16>(Amplitude * std::sin(i * (0.02 + i * 1e-7) * channel)
                                                    + noise(random));
            pcm.append(reinterpret_cast<const char *>(&sample), sizeof sample);
        }
    }

    Material material;
    material.format = format;
    material.mtu = mtu;
    material.packets = sim::encodeSbc(pcm, format, mtu);
    material.packets.removeLast(); // may hold fewer frames
    material.pcmSize = static_cast<int>(sim::decodeSbc(material.packets.mid(0, 1)).size());
    material.seconds = sim::packetSeconds(material.packets.first(), format);
    return material;
}

} // namespace bench
