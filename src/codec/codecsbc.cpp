// SPDX-License-Identifier: MIT
#include "codec/codecsbc.h"

#include "log/log.h"

#include <QIODevice>

#include <algorithm>

namespace {

constexpr unsigned MinBitpool = 2;
constexpr unsigned MaxBitpool = 250;

// Bits of the element's fields, preferred value first.
constexpr unsigned Frequencies[] = {0x1, 0x2, 0x4, 0x8};  // 48000, 44100, 32000, 16000 Hz
constexpr unsigned ChannelModes[] = {0x1, 0x2, 0x8, 0x4}; // joint stereo, stereo, mono, dual channel
constexpr unsigned BlockLengths[] = {0x1, 0x2, 0x4, 0x8}; // 16, 12, 8, 4
constexpr unsigned Subbands[] = {0x1, 0x2};               // 8, 4
constexpr unsigned AllocationMethods[] = {0x2, 0x1};      // SNR, loudness

constexpr unsigned MonoBit = 0x8;

int frequencyOf(unsigned bits)
{
    switch (bits) {
    case 0x1:
        return 48000;
    case 0x4:
        return 32000;
    case 0x8:
        return 16000;
    default:
        return 44100;
    }
}

} // namespace

CodecSBC::CodecSBC()
{
    qDebug("CodecSBC");
}

CodecSBC::~CodecSBC()
{
    qDebug("~CodecSBC");
}

QByteArray CodecSBC::capabilities()
{
    return QByteArray("\xFF\xFF\x02\xFA", 4);
}

QByteArray CodecSBC::selectConfiguration(const QByteArray &peerCapabilities)
{
    const unsigned c0 = octet(peerCapabilities, 0);
    const unsigned c1 = octet(peerCapabilities, 1);
    return element({
        pickPreferred(c0 >> 4, Frequencies) << 4 | pickPreferred(c0 & 0xF, ChannelModes),
        pickPreferred(c1 >> 4, BlockLengths) << 4 | pickPreferred(c1 >> 2 & 3, Subbands) << 2
            | pickPreferred(c1 & 3, AllocationMethods),
        std::max(octet(peerCapabilities, 2), MinBitpool),
        std::min(octet(peerCapabilities, 3), MaxBitpool),
    });
}

void CodecSBC::setConfiguration(const QByteArray &configuration)
{
    const unsigned c0 = octet(configuration, 0);
    sampleRate = frequencyOf(c0 >> 4);
    bitDepth = 16;
    channels = (c0 & 0xF) == MonoBit ? 1 : 2;
}

void CodecSBC::prepare(int readMtu)
{
    // Enough for any mix of frames, because no frame makes more PCM per byte than MaxPcmSize from MinSizeOfMaxPcm
    // bytes. For simplicity the RTP header counts as frame bytes. One MaxPcmSize is added, because processPacket()
    // needs that much free space before each frame. A size taken from the decoder's last frame would be too small for
    // more and shorter frames.
    const size_t frames = 1 + static_cast<size_t>(readMtu) / sbc::Decoder::MinSizeOfMaxPcm;
    pcmSize_ = frames * sbc::Decoder::MaxPcmSize;
    pcm_.reset(new char[pcmSize_]);
}

void CodecSBC::processPacket(const char *packet, int length, QIODevice *out)
{
    // Skip the byte with the frame count, because each frame's header determines its length.
    constexpr int PayloadOffset = RtpHeaderSize + 1;
    if (!out || length < PayloadOffset)
        return;

    const auto *in = reinterpret_cast<const std::uint8_t *>(packet) + PayloadOffset;
    auto remaining = static_cast<size_t>(length - PayloadOffset);
    size_t used = 0;
    while (remaining > 0 && pcmSize_ - used >= sbc::Decoder::MaxPcmSize) {
        size_t written = 0;
        const int result = decoder_.decode(in, remaining, pcm_.get() + used, pcmSize_ - used, written);
        if (result <= 0) {
            logDebug("SBC decoding error") << result;
            break;
        }
        used += written;
        in += result;
        remaining -= static_cast<size_t>(result);
    }
    out->write(pcm_.get(), static_cast<qint64>(used));
}
