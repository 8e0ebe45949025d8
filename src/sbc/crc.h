// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

namespace sbc {

/// The checksum of an SBC frame, a CRC-8 with the polynomial x^8 + x^4 + x^3 + x^2 + 1 and the initial value 0x0F (A2DP
/// 1.3.2, 12.6.1). The covered data may end in the middle of a byte.
class Crc {
public:
    void addByte(unsigned byte) { value_ = Remainders[value_ ^ byte]; }
    /// Adds four bits, 0 to 15.
    void addNibble(unsigned nibble) { value_ = (value_ << 4 & 0xF0U) ^ Remainders[value_ >> 4 ^ nibble]; }
    unsigned value() const { return value_; }

private:
    static constexpr unsigned Polynomial = 0x1D;

    /// Returns the remainder of byte * x^8 for each byte. addNibble() uses the first 16 entries.
    static constexpr std::array<std::uint8_t, 256> makeRemainders()
    {
        std::array<std::uint8_t, 256> remainders{};
        for (unsigned byte = 0; byte < 256; ++byte) {
            unsigned crc = byte;
            for (int bit = 0; bit < 8; ++bit)
                crc = crc << 1 ^ ((crc & 0x80) != 0 ? Polynomial : 0);
            remainders[byte] = static_cast<std::uint8_t>(crc & 0xFF);
        }
        return remainders;
    }
    static const std::array<std::uint8_t, 256> Remainders;

    unsigned value_ = 0x0F;
};

inline constexpr std::array<std::uint8_t, 256> Crc::Remainders = Crc::makeRemainders();

} // namespace sbc
