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
#include "tests/recordingdevice.h"
#include "tests/sbc/frames.h"
#include "tests/sbc/pageend.h"
#include "tests/sbc/reference.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

constexpr int PayloadOffset = 13;
constexpr int HeaderSize = 4;
constexpr std::size_t LongestPacket = 0xFFFF; // its length has two bytes

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
    sbc::Decoder decoder; // its verdicts are not heard
    Reference reference;
    int mtu = -1; ///< -1: not prepared

    /// A packet, which is cut to the MTU as the socket cuts it.
    void play(QByteArray bytes)
    {
        if (mtu >= 0)
            bytes.truncate(mtu);
        static const PageEnd memory(LongestPacket);
        const auto size = static_cast<int>(bytes.size());
        char *packet = memory.last(static_cast<std::size_t>(size));
        std::memcpy(packet, bytes.constData(), static_cast<std::size_t>(size));
        RecordingDevice out;
        codec.processPacket(packet, size, &out);
        PROMISED(out.writes.size() == (size < PayloadOffset ? 0 : 1));
        const QByteArray heard = out.everything();
        QByteArray expected;
        for (int at = PayloadOffset; at < size && mtu >= 0;) {
            char pcm[sbc::Decoder::MaxPcmSize];
            std::size_t written = 0;
            const int length = reference.decode(reinterpret_cast<const std::uint8_t *>(packet) + at,
                                                static_cast<std::size_t>(size - at), pcm, sizeof pcm, written);
            char own[sbc::Decoder::MaxPcmSize];
            std::size_t ownWritten = 0;
            PROMISED(decoder.decode(reinterpret_cast<const std::uint8_t *>(packet) + at,
                                    static_cast<std::size_t>(size - at), own, sizeof own, ownWritten)
                     == length);
            PROMISED(ownWritten == written);
            if (length <= 0)
                break;
            expected.append(pcm, static_cast<int>(written));
            at += length;
        }
        PROMISED(heard == expected);
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
            PROMISED(stream.codec.channels == 1 || stream.codec.channels == 2);
        } else {
            QByteArray packet = input.bytes(input.word());
            if (record == 3)
                mendChecksums(packet);
            stream.play(packet);
        }
    }
    return 0;
}
