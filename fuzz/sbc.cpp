// SBC packets, several for one codec, with the preparations and configurations that come between them.
//
// An input is a row of records; their first byte says, by its two lowest bits, what follows:
//   0  prepare():           the MTU (2 bytes)
//   1  setConfiguration():  length (1 byte), element
//   2  processPacket():     length (2 bytes), packet
//   3  the same, with the checksum of each frame put right: random bytes would hardly ever get past it
//
// Each packet ends at an unmapped page, since libsbc is not instrumented. At the end good streams of four and eight
// subbands are played, which have to sound as from a fresh codec: nothing that a phone sends lasts.

#include "codec/codecsbc.h"
#include "codec/sbcframe.h"
#include "fuzz/fuzzing.h"
#include "tests/packetatpageend.h"
#include "tests/recordingdevice.h"

#include <QRandomGenerator>

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

constexpr int PayloadOffset = 13;

/// The CRC-8 of an SBC frame: of its header without sync word and checksum, and of what is before the samples.
std::uint8_t checksum(const QByteArray &frame, int scaleFactorBits)
{
    unsigned crc = 0x0F;
    const auto add = [&](int byte, int bits) {
        unsigned value = static_cast<std::uint8_t>(frame.at(byte));
        for (int i = 0; i < bits; ++i, value <<= 1)
            crc = (crc << 1 ^ (((crc ^ value) & 0x80) != 0 ? 0x1D : 0)) & 0xFF;
    };
    add(1, 8);
    add(2, 8);
    for (int byte = 4; scaleFactorBits > 0; ++byte, scaleFactorBits -= 8)
        add(byte, std::min(scaleFactorBits, 8));
    return static_cast<std::uint8_t>(crc);
}

void mendChecksums(QByteArray &packet)
{
    SbcFrame frame{};
    for (int at = PayloadOffset;
         at < packet.size() && SbcFrame::read(packet.constData() + at, static_cast<int>(packet.size()) - at, frame) > 0;
         at += frame.length) {
        const int mode = packet.at(at + 1) >> 2 & 3;
        const int channels = mode == 0 ? 1 : 2;
        const int bits = 4 * frame.subbands * channels + (mode == 3 ? frame.subbands : 0);
        if (frame.length * 8 < 32 + bits)
            return;
        packet[at + 3] = static_cast<char>(checksum(packet.mid(at, frame.length), bits));
    }
}

/// The bytes of PCM that a packet is good for: of its whole frames, up to the first that libsbc refuses.
int pcmOf(const PacketAtPageEnd &packet)
{
    sbc_t parser;
    sbc_init(&parser, 0);
    SbcFrame frame{};
    int pcm = 0;
    for (int at = PayloadOffset; at < packet.size(); at += frame.length) {
        if (SbcFrame::read(packet.data() + at, packet.size() - at, frame) <= 0)
            break;
        if (sbc_parse(&parser, packet.data() + at, static_cast<std::size_t>(frame.length)) != frame.length)
            break;
        pcm += frame.pcmSize;
    }
    sbc_finish(&parser);
    return pcm;
}

void play(CodecSBC &codec, const QByteArray &bytes, int mtu)
{
    const PacketAtPageEnd packet(bytes);
    RecordingDevice out;
    codec.processPacket(packet.data(), packet.size(), &out);
    if (packet.size() < PayloadOffset) {
        PROMISED(out.writes.isEmpty());
        return;
    }
    PROMISED(out.writes.size() == 1);
    const auto heard = static_cast<int>(out.writes.constFirst().size());
    const int whole = pcmOf(packet);
    if (packet.size() <= mtu)
        PROMISED(heard == whole);
    PROMISED(heard <= whole);
    PROMISED(heard % 32 == 0); // four blocks of four subbands: the smallest frame
}

/// A packet of three frames of noise.
QByteArray goodPacket(int subbands)
{
    constexpr int Frames = 3;
    QRandomGenerator noise(1);
    QByteArray pcm(Frames * SbcFrame::MaxPcmSize, '\0');
    for (char &byte : pcm)
        byte = static_cast<char>(noise.bounded(256));

    sbc_t encoder;
    sbc_init(&encoder, 0);
    encoder.subbands = subbands == 8 ? SBC_SB_8 : SBC_SB_4;
    encoder.mode = SBC_MODE_STEREO;
    encoder.bitpool = 40;
    QByteArray packet(PayloadOffset, '\0');
    const char *in = pcm.constData();
    for (int i = 0; i < Frames; ++i) {
        char frame[SbcFrame::MaxPcmSize];
        ssize_t length = 0;
        in += sbc_encode(&encoder, in, sbc_get_codesize(&encoder), frame, sizeof frame, &length);
        packet.append(frame, static_cast<int>(length));
    }
    sbc_finish(&encoder);
    return packet;
}

/// What is heard of a good packet's last frame. The decoder's filters hear twenty blocks back, which is in the packet.
QByteArray lastFrame(CodecSBC &codec, const QByteArray &packet)
{
    codec.prepare(672);
    RecordingDevice out;
    codec.processPacket(packet.constData(), static_cast<int>(packet.size()), &out);
    const QByteArray pcm = out.everything();
    return pcm.right(pcm.size() / 3);
}

struct GoodStream {
    explicit GoodStream(int subbands) : packet(goodPacket(subbands))
    {
        CodecSBC fresh;
        lastFrameHeard = lastFrame(fresh, packet);
        PROMISED(lastFrameHeard.size() == 16 * subbands * 2 * 2);
    }
    QByteArray packet;
    QByteArray lastFrameHeard;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const GoodStream fourSubbands(4);
    static const GoodStream eightSubbands(8);

    fuzzing::Input input(data, size);
    CodecSBC codec;
    int mtu = -1; // none yet
    while (!input.atEnd()) {
        const unsigned record = input.byte() & 3;
        if (record == 0) {
            mtu = static_cast<int>(input.word());
            codec.prepare(mtu);
        } else if (record == 1) {
            codec.setConfiguration(input.bytes(input.byte()));
            PROMISED(codec.channels == 1 || codec.channels == 2);
        } else {
            QByteArray packet = input.bytes(input.word());
            if (record == 3)
                mendChecksums(packet);
            play(codec, packet, mtu);
        }
    }
    for (const bool four : {size % 2 == 0, size % 2 != 0, size % 2 == 0}) {
        const GoodStream &stream = four ? fourSubbands : eightSubbands;
        PROMISED(lastFrame(codec, stream.packet) == stream.lastFrameHeard);
    }
    return 0;
}
