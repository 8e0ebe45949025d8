// SPDX-License-Identifier: MIT
#pragma once

#include "bench/material.h"
#include "bench/sbc/libsbc.h"

#include <vector>

namespace bench {

class Process;

/// The phone's and the player's end of a stream in one thread. Sends packets to a process, reads its PCM, and compares
/// every byte with a reference. Ends the program on a difference.
class Pump {
public:
    enum class Pace {
        RealTime,   ///< packets at the rate of their audio
        BackToBack, ///< packets as fast as the process decodes them
    };
    struct Run {
        double cpuUs = 0;              ///< CPU time of the process per packet
        std::vector<double> latencyUs; ///< from sending a packet to receiving its last byte; only with RealTime
    };

    /// Owns neither the process nor the sockets. The process must not have decoded anything yet.
    Pump(const Process &process, int packetSocket, int pcmSocket, const Material &material);
    Pump(const Pump &) = delete;
    Pump &operator=(const Pump &) = delete;

    Run run(Pace pace, int packets);

private:
    void prepareExpected(int packets);
    void send();
    void receive(std::size_t bytes);

    const Process &process_;
    int packetSocket_;
    int pcmSocket_;
    const Material &material_;
    Libsbc reference_;
    int position_ = 0; ///< index of the next packet in the material
    std::vector<char> expected_;
    std::vector<char> received_;
    std::size_t receivedSize_ = 0;
};

} // namespace bench
