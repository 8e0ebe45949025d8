// SPDX-License-Identifier: MIT
// Decodes frames of one configuration in a loop, with this project's decoder or with libsbc, for an instruction
// counter. Does not use Qt, so that it runs in an emulator of any board without a Qt for that board. Usage:
// decodeframes kado|libsbc CONFIGURATION FRAMES      CONFIGURATION: an index into SbcConfigurations

#include "bench/sbc/configurations.h"
#include "bench/sbc/libsbc.h"
#include "sbc/decoder.h"
#include "tests/sbc/frames.h"

#include <cstdlib>
#include <cstring>
#include <iterator>

namespace {

template <typename Decoder>
bool decode(const std::vector<frames::Bytes> &ready, long count)
{
    Decoder decoder;
    char pcm[sbc::Decoder::MaxPcmSize];
    std::size_t written = 0;
    for (long i = 0; i < count; ++i) {
        const frames::Bytes &frame = ready[static_cast<std::size_t>(i) % ready.size()];
        if (decoder.decode(frame.data(), frame.size(), pcm, sizeof pcm, written) <= 0)
            return false;
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    const unsigned long index = argc == 4 ? std::strtoul(argv[2], nullptr, 10) : std::size(bench::SbcConfigurations);
    if (index >= std::size(bench::SbcConfigurations))
        return EXIT_FAILURE;
    const bench::SbcConfiguration &configuration = bench::SbcConfigurations[index];
    constexpr int Frames = 100;
    frames::Random random(1); // NOLINT: fixed seed, for the same sound in every run
    const auto ready = frames::encode(random, configuration.fields, configuration.bitpool, Frames);
    const long count = std::strtol(argv[3], nullptr, 10);
    const bool good = std::strcmp(argv[1], "kado") == 0 ? decode<sbc::Decoder>(ready, count)
                                                        : decode<bench::Libsbc>(ready, count);
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
