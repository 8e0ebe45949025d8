// SPDX-License-Identifier: MIT
#pragma once

#include "sbc/synthesis.h"

#include <cstddef>
#include <cstdint>

namespace sbc {

/// A decoder of SBC frames (A2DP 1.3.2, 12). It returns the same PCM and the same errors as libsbc, several times
/// faster. It uses no heap, no threads and only the C library.
///
/// A decoder serves one stream. Each frame's header describes the frame, and frames may differ in every parameter. When
/// the number of subbands changes, the decoder clears its filters, because their state is valid only for one number of
/// subbands.
class Decoder {
public:
    /// Bytes of PCM from the largest frame (16 blocks, 8 subbands, 2 channels).
    static constexpr std::size_t MaxPcmSize = 512;
    /// Bytes of the shortest frame that decodes to MaxPcmSize. No frame makes more PCM per byte.
    static constexpr std::size_t MinSizeOfMaxPcm = 12;

    Decoder();

    /// Decodes the frame at the beginning of `data`. `size` is the number of readable bytes and may include later
    /// frames. No byte beyond `size` is read.
    ///
    /// Returns the number of bytes of the frame. Writes the frame's PCM to `pcm` and the number of PCM bytes to
    /// `written`. PCM is 16-bit signed samples in host byte order, channels interleaved. If `capacity` bytes cannot
    /// hold all PCM, writes as many samples as fit, the same number for each channel. `pcm` needs no alignment and may
    /// be null if `capacity` is 0.
    ///
    /// For a bad frame, returns a Fault (frame.h), sets `written` to 0 and writes nothing to `pcm`. The next frame
    /// decodes as if the bad frame had not existed, unless the bad frame's header has changed the number of subbands.
    [[gnu::hot]] int decode(const std::uint8_t *data, std::size_t size, char *pcm, std::size_t capacity,
                            std::size_t &written);

private:
    void resetFilters(int subbands);

    int subbands_ = 0; ///< subbands of the frames in filters_; 0 before the first frame
    Filter filters_[MaxChannels];
    Synthesize *synthesize_;
};

} // namespace sbc
