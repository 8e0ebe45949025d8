// SPDX-License-Identifier: MIT
#pragma once

#include "sim/sbcstream.h"

#include <QByteArray>
#include <QList>

namespace bench {

/// A few seconds of sound as media packets that are all alike in size and frames, to be sent over and over.
struct Material {
    sim::SbcFormat format;
    int mtu = 0; ///< bytes
    QList<QByteArray> packets;
    int pcmSize = 0;    ///< bytes of PCM in a packet
    double seconds = 0; ///< of audio in a packet
};

/// Gliding tones with noise, the same at every call.
Material makeMaterial(const sim::SbcFormat &format, int mtu);

} // namespace bench
