// SPDX-License-Identifier: MIT
// SBC packets for one codec, mixed with calls of prepare() and setConfiguration(). Compares the decoded audio with
// libsbc.
//
// An input is a sequence of records. The two lowest bits of a record's first byte give its type:
//   0  prepare():           MTU (2 bytes)
//   1  setConfiguration():  length (1 byte), element
//   2  processPacket():     length (2 bytes), packet
//   3  processPacket() with corrected frame checksums, because random bytes rarely have correct ones
//
// Each packet ends at an unmapped page.

#include "codec/codecsbc.h"
#include "fuzz/expectedaudio.h"
#include "fuzz/fuzzing.h"
#include "tests/packetatpageend.h"
#include "tests/recordingdevice.h"
#include "tests/sbc/frames.h"
#include "tests/sbc/reference.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

constexpr int PayloadOffset = 13;
constexpr int HeaderSize = 4;

void fixChecksums(QByteArray &packet)
{
    Reference measure;
    for (int at = PayloadOffset; at + HeaderSize < packet.size();) {
        auto *frame = reinterpret_cast<std::uint8_t *>(packet.data()) + at;
        const auto size = static_cast<int>(packet.size()) - at;
        if (8 * size < 8 * HeaderSize + frames::scaleFactorBits(frame[1]))
            return;
        frames::fixChecksum(frame);
        char pcm[sbc::Decoder::MaxPcmSize];
        std::size_t written = 0;
        const int length = measure.decode(frame, static_cast<std::size_t>(size), pcm, sizeof pcm, written);
        if (length <= 0)
            return;
        at += length;
    }
}

/// A codec, and libsbc as its reference.
struct Stream {
    CodecSBC codec;
    Reference reference;
    int mtu = -1; ///< -1: not prepared

    /// Processes a packet, truncated to the MTU as by the socket, and compares the audio.
    void play(QByteArray bytes)
    {
        if (mtu >= 0)
            bytes.truncate(mtu);
        const PacketAtPageEnd packet(bytes);
        RecordingDevice out;
        codec.processPacket(packet.data(), packet.size(), &out);
        REQUIRE(out.writes.size() == (packet.size() < PayloadOffset ? 0 : 1));
        REQUIRE(out.everything() == (mtu < 0 ? QByteArray() : expectedPcm(bytes, reference)));
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzzing::Input input(data, size);
    Stream stream;
    while (!input.atEnd()) {
        const unsigned record = input.byte() & 3;
        if (record == 0) {
            stream.mtu = static_cast<int>(input.word());
            stream.codec.prepare(stream.mtu);
        } else if (record == 1) {
            stream.codec.setConfiguration(input.bytes(input.byte()));
        } else {
            QByteArray packet = input.bytes(input.word());
            if (record == 3)
                fixChecksums(packet);
            stream.play(packet);
        }
    }
    return 0;
}
