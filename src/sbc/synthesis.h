// SPDX-License-Identifier: MIT
#pragma once

#include "sbc/samples.h"

namespace sbc {

/// Memory of one channel's synthesis filter: the matrix's results, row by row over time. 8 subbands have 16 rows, of
/// which 12 are distinct and not zero; the window looks back nine blocks, and twelve are kept, a multiple of four.
struct alignas(16) Filter {
    static constexpr int Rows = 12;
    static constexpr int History = 12;
    std::uint32_t rows[Rows][History + MaxBlocks] = {};
};

/// Turns samples into PCM (A2DP 1.3.2, 12.6.5 and 12.6.6): 16-bit, in this machine's byte order, channels interleaved.
/// It takes frame.blocks * frame.subbands * frame.channels * 2 bytes at `pcm`, which needs no alignment. Joint subbands
/// are separated in `samples` itself. Channel n uses filters[n]; a mono frame leaves the second alone.
using Synthesize = void(const Frame &frame, Samples &samples, Filter *filters, char *pcm);

/// For any processor that this program runs on.
Synthesize synthesize;

/// The fastest for the processor at hand.
Synthesize *chooseSynthesis();

} // namespace sbc
