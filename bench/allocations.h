// SPDX-License-Identifier: MIT
#pragma once

#include "bench/material.h"

namespace bench {

/// Heap allocations of the daemon per packet in steady state.
struct Allocations {
    double realTime = 0;
    double backToBack = 0;
};
/// Counts the allocations while so many packets are sent in real time, and so many back to back.
Allocations countAllocations(const Material &material, int realTimePackets, int backToBackPackets);

} // namespace bench
