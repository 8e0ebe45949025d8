// SPDX-License-Identifier: MIT
#pragma once

#include "bench/material.h"
#include "bench/sbc/libsbc.h"

#include <vector>

namespace bench {

class Process;

/// The phone's and the player's end of a stream at once, in one thread: sends packets to a process and reads its PCM,
/// every byte of which is held against the bare loop's; one that differs ends the program.
class Pump {
public:
    enum class Pace {
        RealTime,   ///< each packet at its time by the clock of its audio
        BackToBack, ///< as fast as they are decoded
    };
    struct Run {
        double cpuUs = 0;              ///< of the process, a packet
        std::vector<double> latencyUs; ///< from a packet's sending to its last byte; of RealTime only
    };

    /// Neither the process nor the sockets are owned. The process has decoded nothing before.
    Pump(const Process &process, int packetSocket, int pcmSocket, const Material &material);
    Pump(const Pump &) = delete;
    Pump &operator=(const Pump &) = delete;

    Run run(Pace pace, int packets);

private:
    void expect(int packets);
    void send();
    void hear(std::size_t bytes);

    const Process &process_;
    int packetSocket_;
    int pcmSocket_;
    const Material &material_;
    Libsbc reference_;
    int position_ = 0; ///< of the next packet in the material
    std::vector<char> expected_;
    std::vector<char> heard_;
    std::size_t heardSize_ = 0;
};

} // namespace bench
