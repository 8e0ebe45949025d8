// SPDX-License-Identifier: MIT
#pragma once

#include "sbc/frame.h"
#include "sbc/vectors.h"

namespace sbc {

/// Window sums, indexed by sample of a block and by block. Samples are in playing order, channels interleaved. A sum
/// divided by 2^15 and clipped is a PCM sample.
using Sums = std::uint32_t[MaxSubbands * MaxChannels][MaxBlocks];

// storePcm() writes the samples of Lanes blocks, starting with `block`. A word is two samples, the first at the lower
// address.

#if defined(__SSE2__)

namespace {

/// Two words of each of four blocks.
struct WordPair {
    WordPair(Vector first0, Vector second0, Vector first1, Vector second1)
    {
        const __m128i firsts = clip(first0, first1);
        const __m128i seconds = clip(second0, second1);
        const __m128i word0 = _mm_unpacklo_epi16(firsts, seconds);
        const __m128i word1 = _mm_unpackhi_epi16(firsts, seconds);
        blocks01 = _mm_unpacklo_epi32(word0, word1);
        blocks23 = _mm_unpackhi_epi32(word0, word1);
    }
    static __m128i clip(Vector low, Vector high)
    {
        return _mm_packs_epi32(reinterpret_cast<__m128i>(shiftRight<15>(low)),
                               reinterpret_cast<__m128i>(shiftRight<15>(high)));
    }
    __m128i blocks01;
    __m128i blocks23;
};

} // namespace

static inline void storeSixteen(char *pcm, __m128i bytes)
{
    _mm_storeu_si128(reinterpret_cast<__m128i *>(pcm), bytes);
}

template <int BlockSamples>
static inline void storePcm(char *pcm, const Sums &sums, int block)
{
    const auto sum = [&](int sample) { return load(sums[sample] + block); };
    constexpr int BlockSize = 2 * BlockSamples;
    if constexpr (BlockSamples == 4) {
        const WordPair words(sum(0), sum(1), sum(2), sum(3));
        storeSixteen(pcm, words.blocks01);
        storeSixteen(pcm + 2 * BlockSize, words.blocks23);
    } else {
        for (int i = 0; i < BlockSamples; i += 8, pcm += 16) {
            const WordPair left(sum(i), sum(i + 1), sum(i + 2), sum(i + 3));
            const WordPair right(sum(i + 4), sum(i + 5), sum(i + 6), sum(i + 7));
            storeSixteen(pcm, _mm_unpacklo_epi64(left.blocks01, right.blocks01));
            storeSixteen(pcm + BlockSize, _mm_unpackhi_epi64(left.blocks01, right.blocks01));
            storeSixteen(pcm + 2 * BlockSize, _mm_unpacklo_epi64(left.blocks23, right.blocks23));
            storeSixteen(pcm + 3 * BlockSize, _mm_unpackhi_epi64(left.blocks23, right.blocks23));
        }
    }
}

#elif defined(SBC_NEON)

static inline std::uint32_t *wordsAt(char *pcm)
{
    return static_cast<std::uint32_t *>(static_cast<void *>(pcm)); // NEON stores to any address
}

/// Returns two samples per lane. The saturating left shift by one clips the sum and leaves sum / 2^15 in the upper
/// half.
static inline uint32x4_t makeWord(Vector first, Vector second)
{
    const int32x4_t low = vqshlq_n_s32(reinterpret_cast<int32x4_t>(first), 1);
    const int32x4_t high = vqshlq_n_s32(reinterpret_cast<int32x4_t>(second), 1);
    return vsriq_n_u32(vreinterpretq_u32_s32(high), vreinterpretq_u32_s32(low), 16);
}

template <int BlockSamples>
static inline void storePcm(char *pcm, const Sums &sums, int block)
{
    const auto sum = [&](int sample) { return load(sums[sample] + block); };
    constexpr int BlockSize = 2 * BlockSamples;
    if constexpr (BlockSamples == 4) {
        const uint32x4x2_t words = {{makeWord(sum(0), sum(1)), makeWord(sum(2), sum(3))}};
        vst2q_u32(wordsAt(pcm), words);
    } else {
        for (int i = 0; i < BlockSamples; i += 8, pcm += 16) {
            const uint32x4x4_t words = {{makeWord(sum(i), sum(i + 1)), makeWord(sum(i + 2), sum(i + 3)),
                                         makeWord(sum(i + 4), sum(i + 5)), makeWord(sum(i + 6), sum(i + 7))}};
            vst4q_lane_u32(wordsAt(pcm), words, 0);
            vst4q_lane_u32(wordsAt(pcm + BlockSize), words, 1);
            vst4q_lane_u32(wordsAt(pcm + 2 * BlockSize), words, 2);
            vst4q_lane_u32(wordsAt(pcm + 3 * BlockSize), words, 3);
        }
    }
}

#else

static inline std::int16_t clip(Vector sum)
{
    const auto value = static_cast<std::int32_t>(shiftRight<15>(sum));
    return static_cast<std::int16_t>(value < INT16_MIN ? INT16_MIN : value > INT16_MAX ? INT16_MAX : value);
}

template <int BlockSamples>
static inline void storePcm(char *pcm, const Sums &sums, int block)
{
    const auto sum = [&](int sample) { return load(sums[sample] + block); };
    for (int i = 0; i < BlockSamples; ++i, pcm += sizeof(std::int16_t)) {
        const std::int16_t sample = clip(sum(i));
        std::memcpy(pcm, &sample, sizeof sample);
    }
}

#endif

} // namespace sbc
