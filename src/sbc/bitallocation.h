// SPDX-License-Identifier: MIT
#pragma once

#include "sbc/frame.h"

namespace sbc {

/// Bits per sample, 0 to 16, indexed by channel and subband.
using Allocation = std::uint8_t[MaxChannels][MaxSubbands];

/// Distributes the bitpool to the subbands by their scale factors (A2DP 1.3.2, 12.6.3). Call only after
/// readScaleFactors() has accepted the frame. Returns the sum of `bits` over all channels and subbands. The sum is the
/// bitpool, or twice the bitpool in dual channel mode.
int allocateBits(const Frame &frame, Allocation &bits);

} // namespace sbc
