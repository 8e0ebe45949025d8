// SPDX-License-Identifier: MIT
#pragma once

#include "sbc/bitallocation.h"

#include <cstdint>

namespace sbc {

/// The subband samples of a frame. The blocks of a subband are adjacent, so that a vector holds successive blocks. The
/// values are signed, in two's complement, and the type is unsigned because sums may wrap.
struct alignas(16) Samples {
    std::uint32_t values[MaxChannels][MaxSubbands][MaxBlocks];
};

/// Bytes of the longest frame (dual channel, 8 subbands, 16 blocks, bitpool 128).
constexpr std::size_t MaxFrameSize = 4 + 8 + 16 * 2 * 128 / 8;

/// Unpacks the samples of a frame and applies the scale factors (A2DP 1.3.2, 12.6.4). `data` has the whole frame and
/// eight more readable bytes of any value.
void unpackSamples(const std::uint8_t *data, const Frame &frame, const Allocation &bits, Samples &samples);

} // namespace sbc
