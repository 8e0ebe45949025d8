// SPDX-License-Identifier: MIT
#include "sbc/bitallocation.h"

#include <algorithm>

namespace sbc {

namespace {

constexpr int MaxBits = 16;

// How much less loud than its scale factor a subband is to the ear, by sampling frequency (A2DP 1.3.2, 12.6.3).
constexpr std::int8_t LoudnessOffset4[4][4] = {{-1, 0, 0, 0}, {-2, 0, 0, 1}, {-2, 0, 0, 1}, {-2, 0, 0, 1}};
constexpr std::int8_t LoudnessOffset8[4][8] = {
    {-2, 0, 0, 0, 0, 0, 0, 1}, {-3, 0, 0, 0, 0, 0, 1, 2}, {-4, 0, 0, 0, 0, 0, 1, 2}, {-4, 0, 0, 0, 0, 0, 1, 2}};

// The need of a subband is its scale factor or its loudness().
constexpr int MinNeed = -5;
constexpr int MaxNeed = 15;

int loudness(int scaleFactor, int offset)
{
    if (scaleFactor == 0)
        return MinNeed;
    const int difference = scaleFactor - offset;
    return difference > 0 ? difference / 2 : difference;
}

/// The needs of the subbands that share a bitpool, and how many subbands have each.
class Needs {
public:
    void add(int need)
    {
        needs_[count_++] = static_cast<std::int8_t>(need);
        ++having(need);
        highest_ = std::max(highest_, need);
    }
    int count() const { return count_; }
    int operator[](int index) const { return needs_[index]; }

    /// Where the bitpool runs out: a subband gets its need less `line` in bits, but none below two and sixteen at most.
    struct Cut {
        int line;
        int bits; ///< of all subbands together
    };

    /// Lowers the line while the bitpool holds more than the next slice. A slice gives two bits to each subband whose
    /// need is just above the line, and one bit more to each subband further up that has fewer than sixteen.
    Cut lowestCut(int bitpool)
    {
        int line = highest_;
        int growing = 0; // subbands that have two bits or more, and fewer than sixteen
        for (int bits = 0;; --line) {
            const int next = bits + growing + 2 * having(line + 1);
            if (next >= bitpool)
                return {line, bits};
            bits = next;
            growing += having(line + 1) - having(line + MaxBits - 1);
        }
    }

private:
    static constexpr int Lowest = MinNeed - MaxBits; ///< where a line can get to

    std::uint8_t &having(int need) { return counts_[need - Lowest]; }

    int count_ = 0;
    int highest_ = Lowest;
    std::int8_t needs_[MaxChannels * MaxSubbands];
    std::uint8_t counts_[MaxNeed + MaxBits - Lowest] = {};
};

/// The bits of `Sharing` channels from `first` on, which take turns subband by subband.
template <int Sharing>
int allocate(const Frame &frame, int first, Allocation &bits)
{
    const std::int8_t *offsets = frame.subbands == 4 ? LoudnessOffset4[frame.frequency]
                                                     : LoudnessOffset8[frame.frequency];
    Needs needs;
    for (int i = 0; i < frame.subbands * Sharing; ++i) {
        const int scaleFactor = frame.scaleFactors[first + i % Sharing][i / Sharing];
        needs.add(frame.snr ? scaleFactor : loudness(scaleFactor, offsets[i / Sharing]));
    }
    Needs::Cut cut = needs.lowestCut(frame.bitpool);

    const auto bitsOf = [&](int i) -> std::uint8_t & { return bits[first + i % Sharing][i / Sharing]; };
    for (int i = 0; i < needs.count(); ++i) {
        const int wanted = needs[i] - cut.line;
        bitsOf(i) = static_cast<std::uint8_t>(wanted < 2 ? 0 : std::min(wanted, MaxBits));
    }
    // The bits left are shared out one by one: to the lowest subbands, their part of the next slice, then to any.
    for (int i = 0; i < needs.count() && cut.bits < frame.bitpool; ++i) {
        if (bitsOf(i) >= 2 && bitsOf(i) < MaxBits) {
            ++bitsOf(i);
            ++cut.bits;
        } else if (needs[i] == cut.line + 1 && cut.bits + 1 < frame.bitpool) {
            bitsOf(i) = 2;
            cut.bits += 2;
        }
    }
    for (int i = 0; i < needs.count() && cut.bits < frame.bitpool; ++i) {
        if (bitsOf(i) < MaxBits) {
            ++bitsOf(i);
            ++cut.bits;
        }
    }
    return cut.bits;
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
