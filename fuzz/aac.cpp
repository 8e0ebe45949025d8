// AAC packets, several for one codec.
//
// An input is a row of records; their first byte says, by its two lowest bits, what follows:
//   0, 1  processPacket():     length (2 bytes), packet
//   2     the same, with filling: length (1 byte), beginning of the packet, how much more (2 bytes, of which 14 bits
//         count), of which byte
//   3     setConfiguration():  length (1 byte), element

#include "codec/adtsheader.h"
#include "codec/codecaac.h"
#include "fuzz/fuzzing.h"
#include "tests/packetatpageend.h"
#include "tests/recordingdevice.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

constexpr int LengthOffset = 21; // RTP header and stream configuration

/// The payload of a packet as its length bytes have it; false when it is not all there or too much for an ADTS frame.
bool findPayload(const QByteArray &packet, QByteArray &payload)
{
    auto full = packet.mid(LengthOffset);
    const auto total = full.size();
    while (full.startsWith('\xFF'))
        full.remove(0, 1);
    if (full.isEmpty())
        return false;
    const auto length = (total - full.size()) * 255 + static_cast<std::uint8_t>(full.at(0));
    payload = full.mid(1, length);
    return payload.size() == length && length <= adts::MaxPayloadSize;
}

void play(CodecAAC &codec, const QByteArray &bytes)
{
    const PacketAtPageEnd packet(bytes);
    RecordingDevice out;
    codec.processPacket(packet.data(), packet.size(), nullptr);
    codec.processPacket(packet.data(), packet.size(), &out);

    QByteArray payload;
    if (!findPayload(bytes, payload)) {
        PROMISED(out.writes.isEmpty());
        return;
    }
    PROMISED(out.writes.size() == 1);
    const QByteArray frame = out.writes.constFirst();
    PROMISED(frame.size() >= adts::HeaderSize && frame.size() <= adts::MaxFrameSize);
    const auto octet = [&frame](int index) { return static_cast<std::uint8_t>(frame.at(index)); };
    PROMISED(octet(0) == 0xFF && (octet(1) & 0xF6) == 0xF0);
    PROMISED(((octet(3) & 3) << 11 | octet(4) << 3 | octet(5) >> 5) == frame.size());
    PROMISED(frame.mid(adts::HeaderSize) == payload);
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
            PROMISED(codec.channels == 1 || codec.channels == 2);
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
