// SPDX-License-Identifier: MIT
#pragma once

#include "sbc/bitallocation.h"

#include <cstdint>

namespace sbc {

/// The subband samples of a frame, block after block, so that a vector holds successive blocks of one subband. They are
/// signed, in two's complement: sums of them may wrap.
struct alignas(16) Samples {
    std::uint32_t values[MaxChannels][MaxSubbands][MaxBlocks];
};

/// Longest frame in bytes: dual channel, 8 subbands, 16 blocks, bitpool 128.
constexpr std::size_t MaxFrameSize = 4 + 8 + 16 * 2 * 128 / 8;

/// Unpacks the samples behind the header and restores their scale (A2DP 1.3.2, 12.6.4). `data` holds the frame as a
/// whole; eight bytes behind its end are read, too, and may have any value.
void unpackSamples(const std::uint8_t *data, const Frame &frame, const Allocation &bits, Samples &samples);

} // namespace sbc
