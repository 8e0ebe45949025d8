// SPDX-License-Identifier: MIT
#include "sbc/bitallocation.h"

#include <algorithm>

namespace sbc {

namespace {

constexpr int MaxBits = 16;

// How much quieter a subband sounds than its scale factor, by sampling frequency and subband (A2DP 1.3.2, 12.6.3).
constexpr std::int8_t LoudnessOffset4[4][4] = {{-1, 0, 0, 0}, {-2, 0, 0, 1}, {-2, 0, 0, 1}, {-2, 0, 0, 1}};
constexpr std::int8_t LoudnessOffset8[4][8] = {
    {-2, 0, 0, 0, 0, 0, 0, 1}, {-3, 0, 0, 0, 0, 0, 1, 2}, {-4, 0, 0, 0, 0, 0, 1, 2}, {-4, 0, 0, 0, 0, 0, 1, 2}};

// The bit need of a subband ("bitneed" in A2DP) is its scale factor or its loudness().
constexpr int MinNeed = -5;
constexpr int MaxNeed = 15;

int loudness(int scaleFactor, int offset)
{
    if (scaleFactor == 0)
        return MinNeed;
    const int difference = scaleFactor - offset;
    return difference > 0 ? difference / 2 : difference;
}

/// The bit needs of the subbands that share a bitpool, and the number of subbands with each need.
class BitNeeds {
public:
    void add(int need)
    {
        needs_[size_++] = static_cast<std::int8_t>(need);
        ++count(need);
        highest_ = std::max(highest_, need);
    }
    int size() const { return size_; }
    int operator[](int index) const { return needs_[index]; }

    /// A subband gets its need minus `level` as bits. A result above 16 becomes 16, and a result below 2 becomes 0.
    struct Slice {
        int level; ///< "bitslice" in A2DP
        int bits;  ///< sum over all subbands, "bitcount" in A2DP
    };

    /// Returns the lowest level whose bits are fewer than the bitpool (the highest need if the bitpool is 0). One step
    /// down gives two bits to each subband whose need is one above the level, and one more bit to each subband that has
    /// 2 to 15 bits.
    Slice lowestSlice(int bitpool)
    {
        int level = highest_;
        int growing = 0; // number of subbands that have 2 to 15 bits
        for (int bits = 0;; --level) {
            const int next = bits + growing + 2 * count(level + 1);
            if (next >= bitpool)
                return {level, bits};
            bits = next;
            growing += count(level + 1) - count(level + MaxBits - 1);
        }
    }

private:
    static constexpr int Lowest = MinNeed - MaxBits; ///< the lowest possible level

    std::uint8_t &count(int need) { return counts_[need - Lowest]; }

    int size_ = 0;
    int highest_ = Lowest;
    std::int8_t needs_[MaxChannels * MaxSubbands];
    std::uint8_t counts_[MaxNeed + MaxBits - Lowest] = {};
};

/// Allocates the bits of `Sharing` channels, starting with channel `first`, that share one bitpool. The order is
/// subband by subband, with the channels interleaved. Returns the sum of the bits.
template <int Sharing>
int allocate(const Frame &frame, int first, Allocation &bits)
{
    const std::int8_t *offsets = frame.subbands == 4 ? LoudnessOffset4[frame.frequency]
                                                     : LoudnessOffset8[frame.frequency];
    BitNeeds needs;
    for (int i = 0; i < frame.subbands * Sharing; ++i) {
        const int scaleFactor = frame.scaleFactors[first + i % Sharing][i / Sharing];
        needs.add(frame.snr ? scaleFactor : loudness(scaleFactor, offsets[i / Sharing]));
    }
    BitNeeds::Slice slice = needs.lowestSlice(frame.bitpool);

    const auto bitsOf = [&](int i) -> std::uint8_t & { return bits[first + i % Sharing][i / Sharing]; };
    for (int i = 0; i < needs.size(); ++i) {
        const int wanted = needs[i] - slice.level;
        bitsOf(i) = static_cast<std::uint8_t>(wanted < 2 ? 0 : std::min(wanted, MaxBits));
    }
    // First give the remaining bits of the bitpool to the lowest subbands that would get bits at the next level. Then
    // give one bit to each subband from the lowest on.
    for (int i = 0; i < needs.size() && slice.bits < frame.bitpool; ++i) {
        if (bitsOf(i) >= 2 && bitsOf(i) < MaxBits) {
            ++bitsOf(i);
            ++slice.bits;
        } else if (needs[i] == slice.level + 1 && slice.bits + 1 < frame.bitpool) {
            bitsOf(i) = 2;
            slice.bits += 2;
        }
    }
    for (int i = 0; i < needs.size() && slice.bits < frame.bitpool; ++i) {
        if (bitsOf(i) < MaxBits) {
            ++bitsOf(i);
            ++slice.bits;
        }
    }
    return slice.bits;
}

} // namespace

int allocateBits(const Frame &frame, Allocation &bits)
{
    switch (frame.mode) {
    case ChannelMode::Mono:
        return allocate<1>(frame, 0, bits);
    case ChannelMode::DualChannel:
        return allocate<1>(frame, 0, bits) + allocate<1>(frame, 1, bits);
    case ChannelMode::Stereo:
    case ChannelMode::JointStereo:
        break;
    }
    return allocate<2>(frame, 0, bits);
}

} // namespace sbc
