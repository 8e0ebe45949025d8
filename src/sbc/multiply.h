// SPDX-License-Identifier: MIT
#pragma once

#include "sbc/vectors.h"

// Products with constants. SSE2 has no 32-bit product. Its instruction pmaddwd multiplies the 16-bit halves of each
// lane and adds the two results. One or two such steps are faster than a 32-bit product built from 64-bit products.

namespace sbc {

#if defined(__SSE2__)

static inline Vector multiplyHalves(Vector value, Vector factors)
{
    return reinterpret_cast<Vector>(
        _mm_madd_epi16(reinterpret_cast<__m128i>(value), reinterpret_cast<__m128i>(factors)));
}

/// Returns a vector with the same pair of 16-bit factors in every lane.
template <int Low, int High>
static inline Vector halves()
{
    static_assert(Low >= -0x8000 && Low < 0x8000 && High >= -0x8000 && High < 0x8000);
    return splat((static_cast<std::uint32_t>(Low) & 0xFFFF) | static_cast<std::uint32_t>(High) << 16);
}

namespace {

/// Two vectors for sumOfProducts(). Each value is split into upper * 2^16 + lower, with a signed lower half.
struct Pair {
    Pair(Vector x, Vector y) : lower((x & 0xFFFF) | y << 16), upper((x + 0x8000) >> 16 | ((y + 0x8000) & 0xFFFF0000)) {}
    Vector lower;
    Vector upper;
};

} // namespace

/// Returns x * X + y * Y for Pair(x, y).
template <int X, int Y>
static inline Vector sumOfProducts(const Pair &pair)
{
    return multiplyHalves(pair.lower, halves<X, Y>()) + (multiplyHalves(pair.upper, halves<X, Y>()) << 16);
}

/// Returns the upper 17 bits of each lane in the format of product(). The upper half is unchanged, and bit 15 moves to
/// bit 0.
static inline Vector keepUpper17(Vector value)
{
    const __m128i carried = _mm_mulhi_epu16(reinterpret_cast<__m128i>(value), _mm_set1_epi32(2));
    return (value & 0xFFFF0000) | reinterpret_cast<Vector>(carried);
}

/// Returns Factor times the 17-bit value of each lane. The upper half is multiplied by 2 * Factor and the lower half by
/// Factor. If 2 * Factor does not fit into 16 bits, Factor is split into a multiple of four and a remainder.
template <int Factor>
static inline Vector product(Vector kept)
{
    if constexpr (Factor >= -0x4000 && Factor < 0x4000)
        return multiplyHalves(kept, halves<Factor, 2 * Factor>());
    else
        return (product<(Factor >> 2)>(kept) << 2) + product<(Factor & 3)>(kept);
}

#else

namespace {

struct Pair {
    Pair(Vector x, Vector y) : first(x), second(y) {}
    Vector first;
    Vector second;
};

} // namespace

template <int X, int Y>
static inline Vector sumOfProducts(const Pair &pair)
{
    return pair.first * splat(static_cast<std::uint32_t>(X)) + pair.second * splat(static_cast<std::uint32_t>(Y));
}

static inline Vector keepUpper17(Vector value)
{
    return shiftRight<15>(value);
}

template <int Factor>
static inline Vector product(Vector kept)
{
    return kept * splat(static_cast<std::uint32_t>(Factor));
}

#endif

} // namespace sbc
