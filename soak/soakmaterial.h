#pragma once

#include "sim/sbcstream.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <memory>
#include <random>

namespace sim {

/// Random numbers: the same seed, the same numbers, everywhere.
class SoakRandom {
public:
    explicit SoakRandom(quint32 seed) : engine_(seed) {}
    /// 0 to `count` - 1.
    int below(int count) { return static_cast<int>(engine_() % static_cast<unsigned>(count)); }
    /// From `least` to `most`, both included.
    int between(int least, int most) { return least + below(most - least + 1); }
    bool oneIn(int count) { return below(count) == 0; }

private:
    std::mt19937 engine_;
};

/// A packet, and what is to be heard of it.
struct SoakPacket {
    QByteArray bytes;
    int frames = 0;     ///< SBC: that many frames from its beginning
    QByteArray adts;    ///< AAC: this
    double seconds = 0; ///< of audio that is to be heard
};

/// A stream as a phone configures it, and music for it: packets to be sent round and round, no two alike.
struct SoakFormat {
    uchar codec;
    QByteArray configuration;
    QString played; ///< as the player is told of it, for instance pcm/44100/16/2
    QList<SoakPacket> packets;
};

/// SBC with every rate, channel mode, block length and subband count, and AAC.
QList<SoakFormat> soakFormats();

/// A packet damaged in one of several ways. Of what was damaged nothing is to be heard, nor of what stands behind it.
SoakPacket damaged(const SoakPacket &packet, uchar codec, SoakRandom &random);

/// What is to be heard of a stream: bit for bit what libsbc makes of its frames, one after the other, by one decoder,
/// which begins anew where libsbc would go wrong: where the number of subbands changes.
class SoakDecoder {
public:
    SoakDecoder();
    ~SoakDecoder();
    SoakDecoder(const SoakDecoder &) = delete;
    SoakDecoder &operator=(const SoakDecoder &) = delete;

    QByteArray heardOf(const SoakPacket &packet);

private:
    struct Sbc;
    std::unique_ptr<Sbc> sbc_;
    int subbands_ = 0; ///< of the last frame; 0 before the first
};

} // namespace sim
