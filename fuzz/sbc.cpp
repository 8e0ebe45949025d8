// SPDX-License-Identifier: MIT
// SBC packets, several for one codec, with the preparations and configurations that come between them; everything heard
// is held against libsbc.
//
// An input is a row of records; their first byte says, by its two lowest bits, what follows:
//   0  prepare():           the MTU (2 bytes)
//   1  setConfiguration():  length (1 byte), element
//   2  processPacket():     length (2 bytes), packet
//   3  the same, with the checksum of each frame put right: random bytes would hardly ever get past it
//
// Each packet ends at an unmapped page.

#include "codec/codecsbc.h"
#include "fuzz/fuzzing.h"
#include "fuzz/heard.h"
#include "tests/packetatpageend.h"
#include "tests/recordingdevice.h"
#include "tests/sbc/frames.h"
#include "tests/sbc/reference.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

constexpr int PayloadOffset = 13;
constexpr int HeaderSize = 4;

void mendChecksums(QByteArray &packet)
{
    Reference measure;
    for (int at = PayloadOffset; at + HeaderSize < packet.size();) {
        auto *frame = reinterpret_cast<std::uint8_t *>(packet.data()) + at;
        const auto size = static_cast<int>(packet.size()) - at;
        if (8 * size < 8 * HeaderSize + frames::scaleFactorBits(frame[1]))
            return;
        frames::mendChecksum(frame);
        char pcm[sbc::Decoder::MaxPcmSize];
        std::size_t written = 0;
        const int length = measure.decode(frame, static_cast<std::size_t>(size), pcm, sizeof pcm, written);
        if (length <= 0)
            return;
        at += length;
    }
}

/// A codec, and what libsbc makes of the same packets.
struct Stream {
    CodecSBC codec;
    Reference reference;
    int mtu = -1; ///< -1: not prepared

    /// A packet, which is cut to the MTU as the socket cuts it.
    void play(QByteArray bytes)
    {
        if (mtu >= 0)
            bytes.truncate(mtu);
        const PacketAtPageEnd packet(bytes);
        RecordingDevice out;
        codec.processPacket(packet.data(), packet.size(), &out);
        PROMISED(out.writes.size() == (packet.size() < PayloadOffset ? 0 : 1));
        PROMISED(out.everything() == (mtu < 0 ? QByteArray() : heard::ofSbc(bytes, reference)));
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
                mendChecksums(packet);
            stream.play(packet);
        }
    }
    return 0;
}
