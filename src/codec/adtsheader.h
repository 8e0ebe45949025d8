// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

/// The header of an ADTS frame without CRC (ISO/IEC 13818-7, 6.2).
namespace adts {

constexpr int HeaderSize = 7; ///< bytes
/// Bytes of the longest frame. The frame length field has 13 bits and includes the header.
constexpr int MaxFrameSize = 8191;
constexpr int MaxPayloadSize = MaxFrameSize - HeaderSize;

/// Returns the header for a payload of AAC LC, 0 to MaxPayloadSize bytes. The header always says 44100 Hz and two
/// channels, because the player expects these values regardless of the negotiated ones.
std::array<char, HeaderSize> header(int payloadSize);

} // namespace adts
