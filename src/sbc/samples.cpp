// SPDX-License-Identifier: MIT
#include "sbc/samples.h"

#include <array>
#include <cstring>
#include <type_traits>

namespace sbc {

namespace {

// A sample of b bits with the value a means
//     floor((2a + 1) 2^s / L) - 2^s,   where L = 2^b - 1 and s = scale factor + 3 (three bits are kept for precision).
// A product replaces the division: floor((2a + 1) r / 2^40) - 2^s, where r is 2^(s + 40) / L, increased by at most 1.
// The result is exact. The excess of r makes (2a + 1) r / 2^40 too large by at most 2^17 / 2^40. A quotient that is not
// an integer is at least 1 / L > 2^-16 below the next integer. Every product is below 2^60.
constexpr int ProductBits = 40;
constexpr int PrecisionBits = 3;
constexpr int MaxScaleBits = 15 + PrecisionBits;

/// Returns floor(2^58 / L) for 1 to 16 bits. r is this value shifted right by 18 - s, plus 1.
constexpr std::array<std::uint64_t, 17> makeReciprocals()
{
    std::array<std::uint64_t, 17> reciprocals{};
    for (unsigned bits = 1; bits <= 16; ++bits)
        reciprocals[bits] = (std::uint64_t{1} << (ProductBits + MaxScaleBits)) / ((1U << bits) - 1);
    return reciprocals;
}
constexpr std::array<std::uint64_t, 17> Reciprocals = makeReciprocals();

/// One register of the stream. A word loaded from the byte of a bit has at least WordBits - 7 bits, starting with that
/// bit.
using Word = std::conditional_t<sizeof(void *) == 8, std::uint64_t, std::uint32_t>;
constexpr unsigned WordBits = 8 * sizeof(Word);

/// A subband with bits. A sample is (value * factor + offset) >> 40.
struct CodedSubband {
    std::uint64_t factor;
    std::uint64_t offset;
    std::uint32_t *blocks; ///< destination of the samples
    std::uint32_t mask;
    std::uint32_t rotation; ///< WordBits - bits
};

Word loadWord(const std::uint8_t *data)
{
    Word word = 0;
    std::memcpy(&word, data, sizeof word);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    word = sizeof word == 8 ? static_cast<Word>(__builtin_bswap64(word))
                            : __builtin_bswap32(static_cast<std::uint32_t>(word));
#endif
    return word;
}

/// Adjacent subbands of the stream whose samples of one block are read with one load.
struct Run {
    const CodedSubband *end;
    unsigned bits;
};

/// The coded subbands of a frame, in the stream's order.
struct Layout {
    CodedSubband coded[MaxChannels * MaxSubbands];
    Run runs[MaxChannels * MaxSubbands];
    const Run *runsEnd;
};

void makeLayout(const Frame &frame, const Allocation &allocation, Samples &samples, Layout &layout)
{
    CodedSubband *coded = layout.coded;
    Run *run = layout.runs;
    run->bits = 0;
    for (int channel = 0; channel < frame.channels; ++channel) {
        for (int subband = 0; subband < frame.subbands; ++subband) {
            std::uint32_t *blocks = samples.values[channel][subband];
            const unsigned bits = allocation[channel][subband];
            if (bits == 0) {
                std::memset(blocks, 0, sizeof samples.values[channel][subband]);
                continue;
            }
            if (run->bits + bits > WordBits - 7) {
                run->end = coded;
                (++run)->bits = 0;
            }
            run->bits += bits;
            const unsigned scaleBits = frame.scaleFactors[channel][subband] + unsigned{PrecisionBits};
            const std::uint64_t reciprocal = (Reciprocals[bits] >> (MaxScaleBits - scaleBits)) + 1;
            *coded++ = {2 * reciprocal, reciprocal - (std::uint64_t{1} << (ProductBits + scaleBits)), blocks,
                        (1U << bits) - 1, WordBits - bits};
        }
    }
    run->end = coded;
    layout.runsEnd = run + 1;
}

} // namespace

void unpackSamples(const std::uint8_t *data, const Frame &frame, const Allocation &bits, Samples &samples)
{
    Layout layout;
    makeLayout(frame, bits, samples, layout);
    std::size_t position = frame.samplesStart;
    for (int block = 0; block < frame.blocks; ++block) {
        const CodedSubband *coded = layout.coded;
        for (const Run *run = layout.runs; run != layout.runsEnd; ++run) {
            Word word = loadWord(data + position / 8) << position % 8;
            position += run->bits;
            for (; coded != run->end; ++coded) {
                // Rotate the sample's value into the lowest bits.
                word = word >> coded->rotation | word << (WordBits - coded->rotation);
                const auto value = static_cast<std::int64_t>((word & coded->mask) * coded->factor + coded->offset);
                coded->blocks[block] = static_cast<std::uint32_t>(value >> ProductBits);
            }
        }
    }
}

} // namespace sbc
