// SPDX-License-Identifier: MIT
#pragma once

#include "sbc/samples.h"

namespace sbc {

/// The state of one channel's synthesis filter: the results of the matrix, `rows[row][time]`. For 8 subbands the matrix
/// has 16 rows, and 12 of them are distinct and not zero. The window reads nine blocks back, and the filter keeps
/// twelve, a multiple of four.
struct alignas(16) Filter {
    static constexpr int Rows = 12;
    static constexpr int History = 12;
    std::uint32_t rows[Rows][History + MaxBlocks] = {};
};

/// Converts samples to 16-bit PCM in host byte order, channels interleaved (A2DP 1.3.2, 12.6.5 and 12.6.6). Writes
/// frame.blocks * frame.subbands * frame.channels * 2 bytes to `pcm`, which needs no alignment. Separates joint
/// subbands in place in `samples`. Channel n uses filters[n], and a mono frame does not change filters[1].
using Synthesize = void(const Frame &frame, Samples &samples, Filter *filters, char *pcm);

/// Runs on every processor that the program supports.
Synthesize synthesize;

/// Returns the fastest function for the current processor.
Synthesize *chooseSynthesis();

} // namespace sbc
