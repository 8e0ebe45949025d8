// SPDX-License-Identifier: MIT
#include "codec/adtsheader.h"

std::array<char, adts::HeaderSize> adts::header(int payloadSize)
{
    const struct {
        unsigned bits;
        unsigned value;
    } fields[] = {
        {12, 0xFFF},                                           // syncword
        {1, 0},                                                // ID: MPEG-4
        {2, 0},                                                // layer
        {1, 1},                                                // protection absent
        {2, 1},                                                // profile: AAC LC
        {4, 4},                                                // sampling frequency index: 44100 Hz
        {1, 0},                                                // private bit
        {3, 2},                                                // channel configuration
        {1, 0},                                                // original/copy
        {1, 0},                                                // home
        {1, 0},                                                // copyright identification bit
        {1, 0},                                                // copyright identification start
        {13, static_cast<unsigned>(payloadSize) + HeaderSize}, // frame length
        {11, 0x7FF},                                           // buffer fullness: variable rate
        {2, 0},                                                // number of raw data blocks minus one
    };
    std::uint64_t bits = 0;
    for (const auto &field : fields)
        bits = bits << field.bits | field.value;

    std::array<char, HeaderSize> bytes{};
    for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte, bits >>= 8)
        *byte = static_cast<char>(bits & 0xFF);
    return bytes;
}
