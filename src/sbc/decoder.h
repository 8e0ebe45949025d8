// SPDX-License-Identifier: MIT
#pragma once

#include "sbc/synthesis.h"

#include <cstddef>
#include <cstdint>

namespace sbc {

/// Decodes SBC frames (A2DP 1.3.2, 12) to the very PCM that libsbc makes of them, and judges bad frames as libsbc does,
/// several times faster. It uses no heap, no threads and no library but the C library.
///
/// A decoder serves one stream. Frames may differ in everything; each says in its header how it is made. Where the
/// number of subbands changes the decoder starts afresh, because the filter's memory of one has no meaning for the
/// other.
class Decoder {
public:
    /// PCM of the largest frame in bytes: 16 blocks, 8 subbands, 2 channels.
    static constexpr std::size_t MaxPcmSize = 512;
    /// The shortest frame in bytes that decodes to MaxPcmSize. No frame makes more PCM per byte.
    static constexpr std::size_t MinSizeOfMaxPcm = 12;

    Decoder();

    /// Decodes the frame at the beginning of `data`. `size` counts all bytes there, also those of later frames; none
    /// behind them is read.
    ///
    /// Returns the bytes that the frame takes, and writes its PCM to `pcm`: 16-bit signed samples in this machine's
    /// byte order, channels interleaved, `written` bytes. Where `room` bytes do not hold it all, the samples that fit,
    /// of both channels alike, are written. `pcm` needs no alignment, and may be null where `room` is 0.
    ///
    /// Of a bad frame it returns the Fault (frame.h), sets `written` to 0 and writes nothing, and the next frame sounds
    /// as if there had been none (unless its header called for a fresh start).
    [[gnu::hot]] int decode(const std::uint8_t *data, std::size_t size, char *pcm, std::size_t room,
                            std::size_t &written);

private:
    void startAfresh(int subbands);

    int subbands_ = 0; ///< of the frames that the filters remember; 0 before the first frame
    Filter filters_[MaxChannels];
    Synthesize *synthesize_;
};

} // namespace sbc
