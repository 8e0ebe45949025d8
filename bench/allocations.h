// SPDX-License-Identifier: MIT
#pragma once

#include "bench/material.h"

namespace bench {

/// Heap allocations of the daemon a packet, in steady state: in real time and back to back, `packets` each.
struct Allocations {
    double realTime = 0;
    double backToBack = 0;
};
Allocations countAllocations(const Material &material, int realTimePackets, int backToBackPackets);

} // namespace bench
