// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

/// Header of an ADTS frame without CRC (ISO/IEC 13818-7, 6.2).
namespace adts {

constexpr int HeaderSize = 7;
/// The frame length has 13 bits and counts the header.
constexpr int MaxFrameSize = 8191;
constexpr int MaxPayloadSize = MaxFrameSize - HeaderSize;

/// The header before a payload of 0 to MaxPayloadSize bytes of AAC LC: always marked 44100 Hz, two channels, as the
/// player wants it, whatever was negotiated.
std::array<char, HeaderSize> header(int payloadSize);

} // namespace adts
