// SPDX-License-Identifier: MIT
// The SBC decoder against libsbc: every verdict, every byte of PCM. A program without Qt, so that it runs under an
// emulator of any board as it stands.
//
// Each frame ends at an unmapped page, and so does the PCM.

#include "sbc/decoder.h"
#include "tests/sbc/frames.h"
#include "tests/sbc/pageend.h"
#include "tests/sbc/reference.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int FramesOfAStream = 50;
constexpr int Untouched = 0x5A; ///< in the output, where nothing was written

long decoded = 0;
long bad = 0;

/// One decoder and its measure, which are given the same.
class Duel {
public:
    /// Decodes `size` bytes that begin with a frame, and ends the program where the two differ.
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
        std::printf("call %ld: returned %d, libsbc %d; wrote %zu bytes, libsbc %zu, of room for %zu\n", decoded, result,
                    expected, written, expectedWritten, room);
        std::exit(EXIT_FAILURE);
    }
    void decode(const frames::Bytes &frame) { decode(frame.data(), frame.size()); }

private:
    sbc::Decoder decoder_;
    Reference reference_;
};

/// Streams of all kinds: one configuration or several, with faults in headers and first scale factors and without.
void streams()
{
    for (int stream = 0; stream < 2500; ++stream) {
        frames::Random random(static_cast<unsigned>(stream));
        Duel duel;
        const bool faulty = frames::below(random, 3) == 0;
        const unsigned framesOfAKind = 1 + frames::below(random, 3) * FramesOfAStream / 2;
        unsigned fields = 0;
        for (unsigned i = 0; i < FramesOfAStream; ++i) {
            if (i % framesOfAKind == 0)
                fields = frames::below(random, 256);
            frames::Bytes frame = frames::make(random, fields, frames::possibleBitpool(random, fields));
            if (faulty && frames::below(random, 4) == 0)
                frame[frames::below(random, 8)] ^= static_cast<std::uint8_t>(1U << frames::below(random, 8));
            const bool shortOutput = frames::below(random, 20) == 0;
            duel.decode(frame.data(), frame.size(),
                        shortOutput ? frames::below(random, sbc::Decoder::MaxPcmSize) : sbc::Decoder::MaxPcmSize);
        }
    }
}

/// All second bytes: with all bitpools, those that no frame may have included, and as an encoder makes them, so loud
/// that they are clipped at times.
void headers()
{
    frames::Random random(1);
    for (unsigned fields = 0; fields < 256; ++fields) {
        Duel duel;
        for (unsigned bitpool = 0; bitpool < 256; ++bitpool)
            duel.decode(frames::make(random, fields, bitpool));
        for (const frames::Bytes &frame : frames::encode(random, fields, frames::possibleBitpool(random, fields), 10))
            duel.decode(frame);
    }
}

/// Each length that a frame can be cut to; the decoder then takes the whole frame as if nothing had been.
void truncations()
{
    frames::Random random(2);
    for (unsigned i = 0; i < 512; ++i) {
        const unsigned fields = i * 37 & 0xFF;
        const frames::Bytes frame = frames::make(random, fields, frames::possibleBitpool(random, fields));
        Duel duel;
        duel.decode(frame);
        for (std::size_t size = 0; size <= frame.size(); ++size)
            duel.decode(frame.data(), size);
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
