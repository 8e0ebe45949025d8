// SPDX-License-Identifier: MIT
#pragma once

namespace bench {

class Contestant;

/// Counts the system calls of all threads of the process with strace, in real time. Returns the calls per packet: the
/// difference between a run with twice `packets` and a run with `packets`. strace slows down the process.
double countSystemCalls(Contestant &contestant, int packets);

} // namespace bench
