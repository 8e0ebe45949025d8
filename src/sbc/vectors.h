// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__ARM_NEON) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#include <arm_neon.h>
#define SBC_NEON
#endif

// Vectors of successive blocks, with the compiler's vector extensions. A vector has four lanes with SSE2 or NEON and
// one lane otherwise. The values are signed, and the lanes are unsigned because sums and products may wrap. Functions
// are static and types are in unnamed namespaces, because a program may contain this code twice, for two processors.

namespace sbc {

#if defined(__SSE2__) || defined(SBC_NEON)
constexpr int Lanes = 4;
using Vector = std::uint32_t __attribute__((vector_size(16)));
using SignedVector = std::int32_t __attribute__((vector_size(16)));

static inline Vector splat(std::uint32_t value)
{
    return Vector{value, value, value, value};
}

/// Returns each lane divided by 2^Bits, rounded down.
template <int Bits>
static inline Vector shiftRight(Vector value)
{
    return reinterpret_cast<Vector>(reinterpret_cast<SignedVector>(value) >> Bits);
}
#else
constexpr int Lanes = 1;
using Vector = std::uint32_t;

static inline Vector splat(std::uint32_t value)
{
    return value;
}

template <int Bits>
static inline Vector shiftRight(Vector value)
{
    return static_cast<Vector>(static_cast<std::int32_t>(value) >> Bits);
}
#endif

static inline Vector load(const std::uint32_t *lanes)
{
    Vector value;
    std::memcpy(&value, lanes, sizeof value);
    return value;
}

static inline void store(std::uint32_t *lanes, Vector value)
{
    std::memcpy(lanes, &value, sizeof value);
}

} // namespace sbc
