// SPDX-License-Identifier: MIT
// AAC packets, several for one codec.
//
// An input is a sequence of records. The two lowest bits of a record's first byte give its type:
//   0, 1  processPacket():     length (2 bytes), packet
//   2     processPacket() with padding: length (1 byte), beginning of the packet, number of padding bytes (2 bytes, the
//         lower 14 bits), value of the padding bytes (1 byte)
//   3     setConfiguration():  length (1 byte), element

#include "codec/codecaac.h"
#include "fuzz/expectedaudio.h"
#include "fuzz/fuzzing.h"
#include "tests/packetatpageend.h"
#include "tests/recordingdevice.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

void play(CodecAAC &codec, const QByteArray &bytes)
{
    const PacketAtPageEnd packet(bytes);
    RecordingDevice out;
    codec.processPacket(packet.data(), packet.size(), nullptr);
    codec.processPacket(packet.data(), packet.size(), &out);
    const QByteArray expected = expectedAdts(bytes);
    REQUIRE(out.writes == (expected.isEmpty() ? QList<QByteArray>() : QList<QByteArray>{expected}));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzzing::Input input(data, size);
    CodecAAC codec;
    codec.prepare(672);
    while (!input.atEnd()) {
        const unsigned record = input.byte() & 3;
        if (record == 3) {
            codec.setConfiguration(input.bytes(input.byte()));
        } else if (record == 2) {
            const QByteArray beginning = input.bytes(input.byte());
            const auto more = static_cast<int>(input.word() & 0x3FFF);
            play(codec, beginning + QByteArray(more, static_cast<char>(input.byte())));
        } else {
            play(codec, input.bytes(input.word()));
        }
    }
    return 0;
}
