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

constexpr int Streams = 2500;
constexpr int FramesOfAStream = 50;
constexpr int TruncatedFrames = 512;
constexpr int Untouched = 0x5A; ///< in the output, where nothing was written

struct Tally {
    long frames = 0;
    long bad = 0;
};
Tally tally;

/// One decoder and its measure, which are given the same.
class Duel {
public:
    /// Decodes `size` bytes that begin with a frame; returns what both returned, and ends the program where they
    /// differ.
    int decode(const std::uint8_t *data, std::size_t size, std::size_t room = sbc::Decoder::MaxPcmSize)
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
        ++tally.frames;
        tally.bad += expected < 0 ? 1 : 0;
        if (result != expected || written != expectedWritten || std::memcmp(pcm, expectedPcm, room) != 0)
            fail(data, size, room, result, expected, written, expectedWritten, pcm, expectedPcm);
        return result;
    }
    int decode(const frames::Bytes &bytes) { return decode(bytes.data(), bytes.size()); }

private:
    [[noreturn]] static void fail(const std::uint8_t *data, std::size_t size, std::size_t room, int result,
                                  int expected, std::size_t written, std::size_t expectedWritten, const char *pcm,
                                  const char *expectedPcm)
    {
        std::printf("call %ld: returned %d, libsbc %d; wrote %zu bytes, libsbc %zu, of room for %zu\n", tally.frames,
                    result, expected, written, expectedWritten, room);
        if (written == expectedWritten) {
            std::size_t at = 0;
            while (at < room && pcm[at] == expectedPcm[at])
                ++at;
            std::printf("first difference in byte %zu\n", at);
        }
        std::printf("frame, of %zu bytes:", size);
        for (std::size_t i = 0; i < size && i < 32; ++i)
            std::printf(" %02x", data[i]);
        std::printf("\n0 passed, 1 failed\n");
        std::exit(EXIT_FAILURE);
    }

    sbc::Decoder decoder_;
    Reference reference_;
};

/// A frame that was good, with one fault.
void spoil(frames::Random &random, frames::Bytes &frame)
{
    switch (frames::below(random, 4)) {
    case 0:
        frame.resize(frames::below(random, static_cast<unsigned>(frame.size())));
        break;
    case 1:
        frame[3] ^= static_cast<std::uint8_t>(1U << frames::below(random, 8));
        break;
    case 2:
        frame[4] ^= static_cast<std::uint8_t>(1U << frames::below(random, 8));
        break;
    default:
        for (std::uint8_t &byte : frame)
            byte = static_cast<std::uint8_t>(frames::below(random, 256));
        frame[0] = frames::below(random, 2) == 0 ? 0x9C : frame[0];
    }
}

/// Streams of all kinds: one configuration or another with each frame, random or encoded, with faults and without.
void streams()
{
    for (int stream = 0; stream < Streams; ++stream) {
        frames::Random random(static_cast<unsigned>(stream));
        Duel duel;
        unsigned fields = frames::below(random, 256);
        const unsigned changes = frames::below(random, 3); // of the header: never, at times, with each frame
        const bool faulty = frames::below(random, 3) == 0;
        const bool encoded = frames::below(random, 4) == 0;
        unsigned bitpool = frames::possibleBitpool(random, fields);
        std::vector<frames::Bytes> ready;
        for (int i = 0; i < FramesOfAStream; ++i) {
            if (changes == 2 || (changes == 1 && frames::below(random, 10) == 0)) {
                fields = frames::below(random, 256);
                bitpool = frames::possibleBitpool(random, fields);
                ready.clear();
            } else if (!encoded && frames::below(random, 3) == 0) {
                bitpool = frames::possibleBitpool(random, fields);
            }
            if (encoded && ready.empty())
                ready = frames::encode(random, fields, bitpool, 10);
            frames::Bytes frame = encoded ? ready.back() : frames::make(random, fields, bitpool);
            if (encoded)
                ready.pop_back();
            if (faulty && !frame.empty() && frames::below(random, 4) == 0)
                spoil(random, frame);
            const bool shortOutput = frames::below(random, 20) == 0;
            duel.decode(frame.data(), frame.size(),
                        shortOutput ? frames::below(random, sbc::Decoder::MaxPcmSize) : sbc::Decoder::MaxPcmSize);
        }
    }
}

/// All second bytes with all bitpools, those that no frame may have included.
void headers()
{
    frames::Random random(1);
    for (unsigned fields = 0; fields < 256; ++fields) {
        Duel duel;
        for (unsigned bitpool = 0; bitpool < 256; ++bitpool)
            duel.decode(frames::make(random, fields, bitpool));
    }
}

/// Each length that a frame can be cut to; the decoder then takes the whole frame as if nothing had been.
void truncations()
{
    frames::Random random(2);
    for (int i = 0; i < TruncatedFrames; ++i) {
        const auto fields = static_cast<unsigned>(i * 37) & 0xFF;
        const frames::Bytes frame = frames::make(random, fields, frames::possibleBitpool(random, fields));
        Duel duel;
        duel.decode(frame);
        for (std::size_t size = 0; size < frame.size(); ++size)
            duel.decode(frame.data(), size);
        if (duel.decode(frame) <= 0) {
            std::printf("frame %d no longer decodes after its truncations\n0 passed, 1 failed\n", i);
            std::exit(EXIT_FAILURE);
        }
    }
}

} // namespace

int main()
{
    streams();
    headers();
    truncations();
    std::printf("%ld frames, %ld of them bad: verdicts and PCM are libsbc's; synthesis %s\n", tally.frames, tally.bad,
                sbc::chooseSynthesis() == sbc::synthesize ? "for any processor" : "chosen for this processor");
    std::printf("1 passed, 0 failed\n");
    return EXIT_SUCCESS;
}
