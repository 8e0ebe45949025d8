// SPDX-License-Identifier: MIT
// The minimal sink, as the baseline of the daemon. Reads packets from standard input (a SOCK_SEQPACKET socket) with one
// blocking read each, decodes them with the daemon's decoder, and writes the PCM to standard output (a stream socket)
// with one write per packet.

#include "bench/sbcloop.h"
#include "sbc/decoder.h"

#include <cstdlib>
#include <unistd.h>

int main()
{
    static char packet[4096];
    static char pcm[32 * 1024];
    sbc::Decoder decoder;
    for (;;) {
        const ssize_t length = ::read(STDIN_FILENO, packet, sizeof packet);
        if (length <= 0)
            break;
        const std::size_t size = bench::decodePacket(decoder, packet, static_cast<std::size_t>(length), pcm,
                                                     sizeof pcm);
        if (::write(STDOUT_FILENO, pcm, size) != static_cast<ssize_t>(size))
            return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
