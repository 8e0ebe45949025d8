// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace sbc {

/// The reason why a frame cannot be decoded. The values and their precedence are those of libsbc.
enum Fault : int {
    Truncated = -1,         ///< the data ends inside the header, the scale factors or the samples
    NoSyncWord = -2,        ///< the first byte is not 0x9C
    WrongCrc = -3,          ///< the checksum does not match
    ImpossibleBitpool = -4, ///< more than 16 bits per sample
};

constexpr int MaxChannels = 2;
constexpr int MaxSubbands = 8;
constexpr int MaxBlocks = 16;

enum class ChannelMode : std::uint8_t { Mono, DualChannel, Stereo, JointStereo };

/// The part of a frame before its samples (A2DP 1.3.2, 12.6.1 and 12.6.2).
struct Frame {
    int frequency; ///< 0 to 3: 16000, 32000, 44100, 48000 Hz
    int blocks;    ///< 4, 8, 12 or 16
    ChannelMode mode;
    int channels;   ///< 1 or 2
    bool snr;       ///< bit allocation by signal-to-noise ratio; false: by loudness
    int subbands;   ///< 4 or 8
    int bitpool;    ///< bits of all samples of a block, 0 to 255; in dual channel mode per channel
    unsigned joint; ///< bit n is set if subband n has sum and difference
    std::uint8_t scaleFactors[MaxChannels][MaxSubbands]; ///< 0 to 15
    std::size_t samplesStart;                            ///< in bits from the frame's beginning

    /// Returns whether both channels share one bitpool.
    bool sharesBitpool() const { return mode == ChannelMode::Stereo || mode == ChannelMode::JointStereo; }
};

/// Parses the four header bytes at the beginning of a frame, except the CRC. Returns 0, or a Fault and an undefined
/// `frame`. `data` has `size` bytes, and no byte beyond them is read.
int readHeader(const std::uint8_t *data, std::size_t size, Frame &frame);

/// Parses joint flags and scale factors and checks bitpool and CRC. Call after readHeader() has returned 0, with the
/// same arguments. Returns 0 or a Fault. No byte beyond `size` is read.
int readScaleFactors(const std::uint8_t *data, std::size_t size, Frame &frame);

} // namespace sbc
