// SPDX-License-Identifier: MIT
#include "sbc/decoder.h"

#include "sbc/bitallocation.h"
#include "sbc/frame.h"
#include "sbc/samples.h"

#include <cstring>

namespace sbc {

Decoder::Decoder() : synthesize_(chooseSynthesis()) {}

int Decoder::decode(const std::uint8_t *data, std::size_t size, char *pcm, std::size_t capacity, std::size_t &written)
{
    written = 0;
    Frame frame;
    if (const int fault = readHeader(data, size, frame); fault != 0)
        return fault;
    if (frame.subbands != subbands_)
        resetFilters(frame.subbands);
    if (const int fault = readScaleFactors(data, size, frame); fault != 0)
        return fault;
    Allocation bits;
    const int blockBits = allocateBits(frame, bits);
    const std::size_t frameSize = (frame.samplesStart + static_cast<std::size_t>(frame.blocks * blockBits) + 7) / 8;
    if (frameSize > size)
        return Truncated;

    // Copy the frame, because unpackSamples() reads whole words beyond the frame's end.
    std::uint8_t padded[MaxFrameSize + sizeof(std::uint64_t)];
    std::memcpy(padded, data, frameSize);
    std::memset(padded + frameSize, 0, sizeof(std::uint64_t));
    Samples samples;
    unpackSamples(padded, frame, bits, samples);

    const auto group = sizeof(std::int16_t) * static_cast<std::size_t>(frame.channels);
    const std::size_t pcmSize = group * static_cast<std::size_t>(frame.blocks * frame.subbands);
    if (capacity >= pcmSize) {
        synthesize_(frame, samples, filters_, pcm);
        written = pcmSize;
    } else {
        char whole[MaxPcmSize];
        synthesize_(frame, samples, filters_, whole);
        written = capacity - capacity % group;
        if (written > 0)
            std::memcpy(pcm, whole, written);
    }
    return static_cast<int>(frameSize);
}

void Decoder::resetFilters(int subbands)
{
    subbands_ = subbands;
    for (Filter &filter : filters_)
        filter = Filter();
}

} // namespace sbc
