// SPDX-License-Identifier: MIT
#pragma once

#include "sbc/frame.h"

namespace sbc {

/// Bits of each sample, 0 to 16, by channel and subband.
using Allocation = std::uint8_t[MaxChannels][MaxSubbands];

/// Shares the bitpool out to the subbands by their scale factors (A2DP 1.3.2, 12.6.3). The bitpool has to be one that
/// readScaleFactors() lets pass. Returns the sum over all channels and subbands, which a small bitpool may fall short
/// of and no bitpool exceeds.
int allocateBits(const Frame &frame, Allocation &bits);

} // namespace sbc
