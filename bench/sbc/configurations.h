// SPDX-License-Identifier: MIT
#pragma once

namespace bench {

/// A usual configuration of phones, or an extreme one. All have 16 blocks and the allocation method loudness.
struct SbcConfiguration {
    const char *name;
    unsigned fields; ///< second byte of the frame header
    unsigned bitpool;
};

constexpr SbcConfiguration SbcConfigurations[] = {
    {"44.1 kHz joint stereo, 8 subbands, bitpool 53", 0xBD, 53},
    {"44.1 kHz mono, 8 subbands, bitpool 31", 0xB1, 31},
    {"48 kHz dual channel, 8 subbands, bitpool 53", 0xF5, 53},
    {"44.1 kHz joint stereo, 4 subbands, bitpool 35", 0xBC, 35},
    {"44.1 kHz stereo, 8 subbands, bitpool 35", 0xB9, 35},
};

} // namespace bench
