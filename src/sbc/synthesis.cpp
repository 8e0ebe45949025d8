// SPDX-License-Identifier: MIT
#include "sbc/synthesis.h"

#include "sbc/matrix.h"
#include "sbc/pcm.h"
#include "sbc/window.h"

#include <utility>

namespace sbc {

namespace {

/// Returns the index in Filter of the matrix's row k, 0 to 2 * Subbands - 1. Row Subbands / 2 is all zeros and is not
/// stored, so do not use the result for that row.
template <int Subbands>
constexpr int storedRow(int k)
{
    const int distinct = k > Subbands * 3 / 2 ? 3 * Subbands - k : k;
    return distinct > Subbands / 2 ? distinct - 1 : distinct;
}

/// Replaces sum and difference by left and right in the joint subbands.
void separateJoint(const Frame &frame, Samples &samples)
{
    for (int subband = 0; subband < frame.subbands; ++subband) {
        if ((frame.joint >> subband & 1) == 0)
            continue;
        std::uint32_t *first = samples.values[0][subband];
        std::uint32_t *second = samples.values[1][subband];
        for (int block = 0; block < frame.blocks; block += Lanes) {
            const Vector sum = load(first + block);
            const Vector difference = load(second + block);
            store(first + block, sum + difference);
            store(second + block, sum - difference);
        }
    }
}

/// Applies the matrix to Lanes blocks, starting with `block`.
template <int Subbands>
void matrix(const Samples &samples, int channel, Filter &filter, int block)
{
    const auto sample = [&](int subband) { return load(samples.values[channel][subband] + block); };
    const auto storeRow = [&](int row, Vector value) {
        store(filter.rows[storedRow<Subbands>(row)] + Filter::History + block, keepUpper17(value));
    };
    if constexpr (Subbands == 4) {
        const Vector e[] = {sample(0), sample(1), sample(2), sample(3)};
        const EvenRows even(e, e[0] + e[1] + e[2] + e[3]);
        storeRow(0, even.row0);
        storeRow(1, even.row2);
        storeRow(3, even.row6);
        storeRow(4, even.row8);
        storeRow(5, even.row10);
        storeRow(6, even.row12);
    } else {
        Vector e[4];
        Vector d[4];
        Vector upper = splat(0);
        for (int i = 0; i < 4; ++i) {
            const Vector low = sample(i);
            const Vector high = sample(7 - i);
            e[i] = low + high;
            d[i] = low - high;
            upper += high;
        }
        const Vector sum = e[0] + e[1] + e[2] + e[3];
        const EvenRows even(e, sum);
        const OddRows odd(d, sum, upper);
        storeRow(0, even.row0);
        storeRow(1, odd.row1);
        storeRow(2, even.row2);
        storeRow(3, odd.row3);
        storeRow(5, odd.row5);
        storeRow(6, even.row6);
        storeRow(7, odd.row7);
        storeRow(8, even.row8);
        storeRow(9, odd.row9);
        storeRow(10, even.row10);
        storeRow(11, odd.row11);
        storeRow(12, even.row12);
    }
}

/// Computes sample `Output` of every block. The sum has five values of row Output, from the block and every second
/// block before it, and five values of row Output + Subbands, from the blocks between.
template <int Subbands, int Output>
void window(const Filter &filter, int blocks, std::uint32_t *sums)
{
    const std::uint32_t *row = filter.rows[storedRow<Subbands>(Output)] + Filter::History;
    const std::uint32_t *between = filter.rows[storedRow<Subbands>(Output + Subbands)] + Filter::History - 1;
    constexpr int Opposite = Subbands - Output;
    for (int block = 0; block < blocks; block += Lanes, row += Lanes, between += Lanes) {
        Vector sum = product<windowAt<Subbands>(Opposite, 4)>(load(between))
            + product<windowAt<Subbands>(Opposite, 3)>(load(between - 2))
            + product<windowAt<Subbands>(Opposite, 2)>(load(between - 4))
            + product<windowAt<Subbands>(Opposite, 1)>(load(between - 6))
            + product<windowAt<Subbands>(Opposite, 0)>(load(between - 8));
        if constexpr (Output != Subbands / 2) {                      // row Subbands / 2 is zero
            sum += product<windowAt<Subbands>(Output, 0)>(load(row)) //
                + product<windowAt<Subbands>(Output, 1)>(load(row - 2))
                + product<windowAt<Subbands>(Output, 2)>(load(row - 4))
                + product<windowAt<Subbands>(Output, 3)>(load(row - 6))
                + product<windowAt<Subbands>(Output, 4)>(load(row - 8));
        }
        store(sums + block, sum);
    }
}

template <int Subbands, int Channels, int... Index>
void windows(const Filter *filters, int blocks, Sums &sums, std::integer_sequence<int, Index...> /*samples*/)
{
    (window<Subbands, Index / Channels>(filters[Index % Channels], blocks, sums[Index]), ...);
}

/// Moves the last Filter::History values of a row to its beginning.
template <int... Index>
void keepHistory(std::uint32_t *row, int blocks, std::integer_sequence<int, Index...> /*vectors*/)
{
    (store(row + Index * Lanes, load(row + blocks + Index * Lanes)), ...);
}

template <int Subbands, int Channels>
void run(int blocks, const Samples &samples, Filter *filters, char *pcm)
{
    for (int channel = 0; channel < Channels; ++channel) {
        for (int block = 0; block < blocks; block += Lanes)
            matrix<Subbands>(samples, channel, filters[channel], block);
    }
    constexpr int BlockSamples = Subbands * Channels;
    alignas(16) Sums sums;
    windows<Subbands, Channels>(filters, blocks, sums, std::make_integer_sequence<int, BlockSamples>());
    for (int block = 0; block < blocks; block += Lanes)
        storePcm<BlockSamples>(pcm + 2 * BlockSamples * block, sums, block);
    constexpr int StoredRows = Subbands * 3 / 2;
    for (int channel = 0; channel < Channels; ++channel) {
        for (int row = 0; row < StoredRows; ++row)
            keepHistory(filters[channel].rows[row], blocks, std::make_integer_sequence<int, Filter::History / Lanes>());
    }
}

} // namespace

#ifndef SBC_SYNTHESIZE
#define SBC_SYNTHESIZE synthesize
#endif

void SBC_SYNTHESIZE(const Frame &frame, Samples &samples, Filter *filters, char *pcm)
{
    separateJoint(frame, samples);
    const bool mono = frame.channels == 1;
    if (frame.subbands == 8)
        (mono ? run<8, 1> : run<8, 2>)(frame.blocks, samples, filters, pcm);
    else
        (mono ? run<4, 1> : run<4, 2>)(frame.blocks, samples, filters, pcm);
}

} // namespace sbc
