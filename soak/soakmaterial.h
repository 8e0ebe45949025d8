// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <random>

namespace sim {

/// A random number generator. The same seed gives the same numbers on every platform.
class SoakRandom {
public:
    explicit SoakRandom(quint32 seed) : engine_(seed) {}
    /// Returns a number from 0 to `count` - 1.
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

/// A stream format of a phone, and packets for it. All packets differ. Send them in a loop.
struct SoakFormat {
    static constexpr uchar Sbc = 0;
    static constexpr uchar Aac = 2;

    uchar codec;
    QByteArray configuration;
    QString urlFormat; ///< the format in the player's /Play request, for example pcm/44100/16/2
    QList<QByteArray> packets;
};

/// Returns SBC formats that cover every rate, channel mode, block length and subband count, and two AAC formats.
QList<SoakFormat> soakFormats();

/// Damages a packet: truncates it (possibly to 0 bytes), inverts one bit, or appends bytes.
QByteArray damaged(QByteArray packet, SoakRandom &random);

} // namespace sim
