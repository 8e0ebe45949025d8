// SPDX-License-Identifier: MIT
#include "tests/sbc/frames.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <sbc/sbc.h>

namespace frames {

namespace {

constexpr std::size_t HeaderSize = 4;

unsigned modeOf(unsigned fields)
{
    return fields >> 2 & 3;
}

} // namespace

unsigned below(Random &random, unsigned count)
{
    return static_cast<unsigned>(random() % count);
}

int scaleFactorBits(unsigned fields)
{
    const int subbands = (fields & 1) != 0 ? 8 : 4;
    const int joint = modeOf(fields) == SBC_MODE_JOINT_STEREO ? subbands : 0;
    const int channels = modeOf(fields) == SBC_MODE_MONO ? 1 : 2;
    return joint + 4 * subbands * channels;
}

void fixChecksum(std::uint8_t *frame)
{
    unsigned crc = 0x0F;
    const auto add = [&](unsigned byte, int bits) {
        for (int i = 0; i < bits; ++i, byte <<= 1)
            crc = (crc << 1 ^ (((crc ^ byte) & 0x80) != 0 ? 0x1DU : 0U)) & 0xFF;
    };
    add(frame[1], 8);
    add(frame[2], 8);
    const std::uint8_t *byte = frame + HeaderSize;
    for (int bits = scaleFactorBits(frame[1]); bits > 0; bits -= 8)
        add(*byte++, std::min(bits, 8));
    frame[3] = static_cast<std::uint8_t>(crc);
}

unsigned possibleBitpool(Random &random, unsigned fields)
{
    const bool shared = modeOf(fields) == SBC_MODE_STEREO || modeOf(fields) == SBC_MODE_JOINT_STEREO;
    const unsigned subbands = (fields & 1) != 0 ? 8 : 4;
    return below(random, std::min((shared ? 32U : 16U) * subbands, 255U) + 1);
}

Bytes make(Random &random, unsigned fields, unsigned bitpool)
{
    // Masks for random bytes of scale factors and samples: bits that are kept, and bits that are set.
    const struct {
        unsigned scaleMask, scale, sampleMask, sample;
    } kinds[] = {
        {0xFF, 0, 0xFF, 0},
        {0, 0xFF, 0, 0xFF}, // the largest possible samples
        {0, 0xFF, 0, 0},
        {below(random, 256), 0, 0xFF, 0}, // quiet, or only some subbands
        {0, 0x11 * below(random, 16), 0xFF, 0},
    };
    const auto &kind = kinds[below(random, std::size(kinds))];
    const int blocks = 4 * (1 + static_cast<int>(fields >> 4 & 3));
    const int sampleBits = blocks * static_cast<int>(bitpool) * (modeOf(fields) == SBC_MODE_DUAL_CHANNEL ? 2 : 1);
    const int scaleBits = scaleFactorBits(fields);
    Bytes frame(HeaderSize + static_cast<std::size_t>((scaleBits + sampleBits) / 8 + 2));
    for (std::size_t i = 0; i < frame.size(); ++i) {
        const bool isScale = i < HeaderSize + static_cast<std::size_t>(scaleBits) / 8;
        const unsigned byte = below(random, 256) & (isScale ? kind.scaleMask : kind.sampleMask);
        frame[i] = static_cast<std::uint8_t>(byte | (isScale ? kind.scale : kind.sample));
    }
    frame[0] = 0x9C;
    frame[1] = static_cast<std::uint8_t>(fields);
    frame[2] = static_cast<std::uint8_t>(bitpool);
    fixChecksum(frame.data());
    return frame;
}

std::vector<Bytes> encode(Random &random, unsigned fields, unsigned bitpool, int count)
{
    sbc_t encoder;
    sbc_init(&encoder, 0);
    encoder.frequency = static_cast<std::uint8_t>(fields >> 6);
    encoder.blocks = static_cast<std::uint8_t>(fields >> 4 & 3);
    encoder.mode = static_cast<std::uint8_t>(modeOf(fields));
    encoder.allocation = (fields & 2) != 0 ? SBC_AM_SNR : SBC_AM_LOUDNESS;
    encoder.subbands = (fields & 1) != 0 ? SBC_SB_8 : SBC_SB_4;
    encoder.bitpool = static_cast<std::uint8_t>(std::max(bitpool, 2U)); // the encoder's minimum
    encoder.endian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? SBC_LE : SBC_BE;

    std::vector<Bytes> frames(static_cast<std::size_t>(count), Bytes(1024));
    std::vector<std::int16_t> pcm(sbc_get_codesize(&encoder) / sizeof(std::int16_t));
    double phase = 0;
    double step = 0.01;
    const double loudness = 40000.0 / (1 + below(random, 20));
    for (Bytes &frame : frames) {
        for (std::int16_t &sample : pcm) {
            step = std::min(step * 1.0005, 3.0);
            phase += step;
            const double value = loudness * std::sin(phase) + static_cast<double>(below(random, 200));
            sample = static_cast<std::int16_t>(std::clamp(value, -32768.0, 32767.0));
        }
        ssize_t length = 0;
        sbc_encode(&encoder, pcm.data(), pcm.size() * sizeof(std::int16_t), frame.data(), frame.size(), &length);
        frame.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    }
    sbc_finish(&encoder);
    return frames;
}

} // namespace frames
