// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace sbc {

/// Why a frame does not decode. The numbers, and their precedence, are those that libsbc returns.
enum Fault : int {
    Truncated = -1,  ///< fewer bytes than the header, the scale factors or the samples take
    NoSyncWord = -2, ///< the first byte is not 0x9C
    WrongCrc = -3,
    ImpossibleBitpool = -4, ///< more bits than 16 for each sample
};

constexpr int MaxChannels = 2;
constexpr int MaxSubbands = 8;
constexpr int MaxBlocks = 16;

enum class ChannelMode : std::uint8_t { Mono, DualChannel, Stereo, JointStereo };

/// Everything in a frame that comes before its samples (A2DP 1.3.2, 12.6.1 and 12.6.2).
struct Frame {
    int frequency; ///< 0 to 3: 16000, 32000, 44100, 48000 Hz
    int blocks;    ///< 4, 8, 12 or 16
    ChannelMode mode;
    int channels;   ///< 1 or 2
    bool snr;       ///< bit allocation by signal-to-noise ratio, else by loudness
    int subbands;   ///< 4 or 8
    int bitpool;    ///< bits for the samples of a block, 0 to 255; in dual channel mode for each channel
    unsigned joint; ///< bit n: subband n holds sum and difference
    std::uint8_t scaleFactors[MaxChannels][MaxSubbands]; ///< 0 to 15
    std::size_t samplesStart;                            ///< in bits from the frame's beginning

    /// The samples of both channels share one bitpool.
    bool sharesBitpool() const { return mode == ChannelMode::Stereo || mode == ChannelMode::JointStereo; }
};

/// Reads the four bytes that every frame begins with, all but the CRC. Returns 0 or a Fault, after which `frame` is
/// undefined. `data` holds `size` bytes; no byte behind them is read.
int readHeader(const std::uint8_t *data, std::size_t size, Frame &frame);

/// Reads joint flags and scale factors after readHeader() and checks bitpool and CRC. Returns 0 or a Fault.
int readScaleFactors(const std::uint8_t *data, std::size_t size, Frame &frame);

} // namespace sbc
