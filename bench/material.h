// SPDX-License-Identifier: MIT
#pragma once

#include "sim/sbcstream.h"

#include <QByteArray>
#include <QList>

namespace bench {

/// A few seconds of sound as media packets, to be sent in a loop. All packets have the same size and number of frames.
struct Material {
    sim::SbcFormat format;
    int mtu = 0; ///< bytes
    QList<QByteArray> packets;
    int pcmSize = 0;    ///< bytes of PCM per packet
    double seconds = 0; ///< duration of a packet's audio
};

/// Encodes rising tones with noise. Every call returns the same packets.
Material makeMaterial(const sim::SbcFormat &format, int mtu);

} // namespace bench
