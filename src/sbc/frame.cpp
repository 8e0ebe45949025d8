// SPDX-License-Identifier: MIT
#include "sbc/frame.h"

#include "sbc/crc.h"

namespace sbc {

namespace {

constexpr unsigned SyncWord = 0x9C;
constexpr std::size_t HeaderSize = 4;
constexpr int MaxBitsPerSample = 16;

/// Returns the four-bit field number `index` after the header. A scale factor is one field. The joint flags are one
/// field for 4 subbands and two fields for 8 subbands.
unsigned nibble(const std::uint8_t *data, int index)
{
    const unsigned byte = data[HeaderSize + static_cast<std::size_t>(index / 2)];
    return index % 2 == 0 ? byte >> 4 : byte & 0xF;
}

/// Returns the CRC of the header's second and third byte and of the `nibbles` fields after the header.
unsigned checksum(const std::uint8_t *data, int nibbles)
{
    Crc crc;
    crc.addByte(data[1]);
    crc.addByte(data[2]);
    const std::uint8_t *byte = data + HeaderSize;
    for (int i = 0; i < nibbles / 2; ++i)
        crc.addByte(*byte++);
    if (nibbles % 2 != 0)
        crc.addNibble(*byte >> 4);
    return crc.value();
}

/// Returns the joint flags with subband n in bit n. The frame has subband 0 in the highest bit.
unsigned jointFlags(const std::uint8_t *data, int nibbles)
{
    unsigned joint = 0;
    for (int subband = 0; subband < 4 * nibbles - 1; ++subband) // the last subband is never joint
        joint |= (nibble(data, subband / 4) >> (3 - subband % 4) & 1) << subband;
    return joint;
}

} // namespace

int readHeader(const std::uint8_t *data, std::size_t size, Frame &frame)
{
    if (size < HeaderSize)
        return Truncated;
    if (data[0] != SyncWord)
        return NoSyncWord;
    const unsigned fields = data[1];
    frame.frequency = static_cast<int>(fields >> 6);
    frame.blocks = 4 * (1 + static_cast<int>(fields >> 4 & 3));
    frame.mode = static_cast<ChannelMode>(fields >> 2 & 3);
    frame.channels = frame.mode == ChannelMode::Mono ? 1 : 2;
    frame.snr = (fields >> 1 & 1) != 0;
    frame.subbands = (fields & 1) != 0 ? 8 : 4;
    frame.bitpool = data[2];
    return 0;
}

int readScaleFactors(const std::uint8_t *data, std::size_t size, Frame &frame)
{
    const int sharing = frame.sharesBitpool() ? 2 : 1;
    if (frame.bitpool > MaxBitsPerSample * frame.subbands * sharing)
        return ImpossibleBitpool;

    const int jointNibbles = frame.mode == ChannelMode::JointStereo ? frame.subbands / 4 : 0;
    const int nibbles = jointNibbles + frame.subbands * frame.channels;
    frame.samplesStart = 8 * HeaderSize + 4 * static_cast<std::size_t>(nibbles);
    if (size < (frame.samplesStart + 7) / 8)
        return Truncated;

    if (checksum(data, nibbles) != data[3])
        return WrongCrc;

    frame.joint = jointFlags(data, jointNibbles);
    int next = jointNibbles;
    for (int channel = 0; channel < frame.channels; ++channel) {
        for (int subband = 0; subband < frame.subbands; ++subband)
            frame.scaleFactors[channel][subband] = static_cast<std::uint8_t>(nibble(data, next++));
    }
    return 0;
}

} // namespace sbc
