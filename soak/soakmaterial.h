// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <random>

namespace sim {

/// Random numbers: the same seed, the same numbers, everywhere.
class SoakRandom {
public:
    explicit SoakRandom(quint32 seed) : engine_(seed) {}
    /// 0 to `count` - 1.
    int below(int count) { return static_cast<int>(engine_() % static_cast<unsigned>(count)); }
    bool oneIn(int count) { return below(count) == 0; }
    template <typename Container>
    decltype(auto) oneOf(const Container &container)
    {
        return std::begin(container)[below(static_cast<int>(std::size(container)))];
    }

private:
    std::mt19937 engine_;
};

/// A stream as a phone configures it, and music for it: packets to be sent round and round, no two alike.
struct SoakFormat {
    static constexpr uchar Sbc = 0;
    static constexpr uchar Aac = 2;

    uchar codec;
    QByteArray configuration;
    QString played; ///< as the player is told of it, for instance pcm/44100/16/2
    QList<QByteArray> packets;
};

/// SBC with every rate, channel mode, block length and subband count, and AAC.
QList<SoakFormat> soakFormats();

/// A packet that is cut, down to nothing at times, altered in one bit or too long.
QByteArray damaged(QByteArray packet, SoakRandom &random);

} // namespace sim
