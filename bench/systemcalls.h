// SPDX-License-Identifier: MIT
#pragma once

namespace bench {

class Contestant;

/// System calls of the process a packet in real time, of all its threads: the difference between 2 and 1 times
/// `packets`, counted by strace. The process is slowed down meanwhile.
double countSystemCalls(Contestant &contestant, int packets);

} // namespace bench
