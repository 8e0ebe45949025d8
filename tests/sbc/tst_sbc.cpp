// SPDX-License-Identifier: MIT
// Compares the SBC decoder with libsbc: every return value and every byte of PCM. Does not use Qt, so that it runs in
// an emulator of any board without a Qt for that board.
//
// An unmapped page follows each frame and each PCM buffer.

#include "sbc/decoder.h"
#include "tests/sbc/frames.h"
#include "tests/sbc/pageend.h"
#include "tests/sbc/reference.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int FramesPerStream = 50;
constexpr int Untouched = 0x5A; ///< initial value of the output bytes

long decoded = 0;
long bad = 0;

/// A decoder and its reference, with the same input.
class Comparison {
public:
    /// Decodes `size` bytes that begin with a frame. Ends the program when the results differ.
    void decode(const std::uint8_t *data, std::size_t size, std::size_t room = sbc::Decoder::MaxPcmSize)
    {
        static const PageEnd input(2048);
        static const PageEnd output(sbc::Decoder::MaxPcmSize);
        static char expectedPcm[sbc::Decoder::MaxPcmSize];
        auto *frame = reinterpret_cast<std::uint8_t *>(input.last(size));
        std::memcpy(frame, data, size);
        char *pcm = output.last(room);
        std::memset(pcm, Untouched, room);
        std::memset(expectedPcm, Untouched, room);
        std::size_t written = room + 1;
        std::size_t expectedWritten = 0;
        const int result = decoder_.decode(frame, size, pcm, room, written);
        const int expected = reference_.decode(frame, size, expectedPcm, room, expectedWritten);
        ++decoded;
        bad += expected < 0 ? 1 : 0;
        if (result == expected && written == expectedWritten && std::memcmp(pcm, expectedPcm, room) == 0)
            return;
        std::printf("call %ld: returned %d, libsbc %d; wrote %zu bytes, libsbc %zu; output size %zu\n", decoded, result,
                    expected, written, expectedWritten, room);
        std::exit(EXIT_FAILURE);
    }
    void decode(const frames::Bytes &frame) { decode(frame.data(), frame.size()); }

private:
    sbc::Decoder decoder_;
    Reference reference_;
};

/// Decodes streams with one configuration or several, with and without faults in headers and first scale factors.
void streams()
{
    for (int stream = 0; stream < 2500; ++stream) {
        frames::Random random(static_cast<unsigned>(stream));
        Comparison comparison;
        const bool faulty = frames::below(random, 3) == 0;
        const unsigned framesPerConfiguration = 1 + frames::below(random, 3) * FramesPerStream / 2;
        unsigned fields = 0;
        for (unsigned i = 0; i < FramesPerStream; ++i) {
            if (i % framesPerConfiguration == 0)
                fields = frames::below(random, 256);
            frames::Bytes frame = frames::make(random, fields, frames::possibleBitpool(random, fields));
            if (faulty && frames::below(random, 4) == 0)
                frame[frames::below(random, 8)] ^= static_cast<std::uint8_t>(1U << frames::below(random, 8));
            const bool shortOutput = frames::below(random, 20) == 0;
            comparison.decode(frame.data(), frame.size(),
                              shortOutput ? frames::below(random, sbc::Decoder::MaxPcmSize) : sbc::Decoder::MaxPcmSize);
        }
    }
}

/// Decodes frames with every second header byte: with every bitpool, even invalid ones, and from libsbc's encoder.
void headers()
{
    frames::Random random(1);
    for (unsigned fields = 0; fields < 256; ++fields) {
        Comparison comparison;
        for (unsigned bitpool = 0; bitpool < 256; ++bitpool)
            comparison.decode(frames::make(random, fields, bitpool));
        for (const frames::Bytes &frame : frames::encode(random, fields, frames::possibleBitpool(random, fields), 10))
            comparison.decode(frame);
    }
}

/// Truncates frames to every length. The decoder must then decode the whole frame as if nothing had happened.
void truncations()
{
    frames::Random random(2);
    for (unsigned i = 0; i < 512; ++i) {
        const unsigned fields = i * 37 & 0xFF;
        const frames::Bytes frame = frames::make(random, fields, frames::possibleBitpool(random, fields));
        Comparison comparison;
        comparison.decode(frame);
        for (std::size_t size = 0; size <= frame.size(); ++size)
            comparison.decode(frame.data(), size);
    }
}

} // namespace

int main()
{
    streams();
    headers();
    truncations();
    std::printf("%ld frames, %ld of them bad: verdicts and PCM are libsbc's; synthesis %s\n", decoded, bad,
                sbc::chooseSynthesis() == sbc::synthesize ? "for any processor" : "chosen for this processor");
    return EXIT_SUCCESS;
}
