// SPDX-License-Identifier: MIT
#include "codec/codecaac.h"

#include "log/log.h"

#include <QIODevice>

#include <algorithm>

namespace {

// Bytes of the audio mux element's stream configuration, between the RTP header and the payload length.
constexpr int StreamConfigurationSize = 9;

constexpr unsigned AacLc = 0x80;
constexpr unsigned VariableBitRate = 0x80;

struct Frequency {
    unsigned bit;
    int hz;
};
constexpr Frequency Frequencies[] = {
    {0x800, 8000}, {0x400, 11025}, {0x200, 12000}, {0x100, 16000}, {0x80, 22050}, {0x40, 24000},
    {0x20, 32000}, {0x10, 44100},  {0x8, 48000},   {0x4, 64000},   {0x2, 88200},  {0x1, 96000},
};

// Preferred frequency first. 64000 Hz comes after 48000 and 44100 Hz, because every player supports these two.
constexpr unsigned FrequencyPreferences[] = {0x1, 0x2, 0x8, 0x10, 0x4, 0x20, 0x40, 0x80, 0x100, 0x200, 0x400, 0x800};
constexpr unsigned TwoChannels = 0x1;
constexpr unsigned OneChannel = 0x2;
constexpr unsigned ChannelPreferences[] = {TwoChannels, OneChannel};

unsigned frequencyField(unsigned octet1, unsigned octet2)
{
    return octet1 << 4 | octet2 >> 4;
}

unsigned channelField(unsigned octet2)
{
    return octet2 >> 2 & 3;
}

} // namespace

CodecAAC::CodecAAC()
{
    qDebug("CodecAAC");
}

CodecAAC::~CodecAAC()
{
    qDebug("~CodecAAC");
}

QByteArray CodecAAC::capabilities()
{
    return QByteArray("\x80\xFF\xFC\xFF\xFF\xFF", 6);
}

QByteArray CodecAAC::selectConfiguration(const QByteArray &peerCapabilities)
{
    const unsigned c1 = octet(peerCapabilities, 1);
    const unsigned c2 = octet(peerCapabilities, 2);
    const unsigned frequency = pickPreferred(frequencyField(c1, c2), FrequencyPreferences);
    const unsigned channelBit = pickPreferred(channelField(c2), ChannelPreferences);
    // Accept the phone's variable bit rate flag and bit rate.
    return element({
        AacLc,
        frequency >> 4,
        (frequency << 4 & 0xF0) | channelBit << 2,
        octet(peerCapabilities, 3),
        octet(peerCapabilities, 4),
        octet(peerCapabilities, 5),
    });
}

void CodecAAC::setConfiguration(const QByteArray &configuration)
{
    const unsigned field = frequencyField(octet(configuration, 1), octet(configuration, 2));
    const auto *found = std::find_if(std::begin(Frequencies), std::end(Frequencies),
                                     [field](const Frequency &frequency) { return frequency.bit == field; });
    sampleRate = found != std::end(Frequencies) ? found->hz : 44100;
    bitDepth = 16;
    channels = channelField(octet(configuration, 2)) == OneChannel ? 1 : 2;

    // All three octets are shifted by 16. This is not the bit rate, but readers of the log know the number in this
    // form.
    const unsigned c3 = octet(configuration, 3);
    const unsigned bitRate = (c3 & 0x7F) << 16 | octet(configuration, 4) << 16 | octet(configuration, 5) << 16;
    LogStream log("0Bitrate:");
    log << bitRate;
    if ((c3 & VariableBitRate) != 0)
        log << "VBR";
}

void CodecAAC::prepare(int /*readMtu*/) {}

void CodecAAC::processPacket(const char *packet, int length, QIODevice *out)
{
    if (!out)
        return;

    int position = RtpHeaderSize + StreamConfigurationSize;
    int payloadSize = 0;
    unsigned lengthByte = 0;
    do {
        if (position >= length) {
            logDebug("AAC packet without payload length dropped, bytes:") << length;
            return;
        }
        lengthByte = static_cast<std::uint8_t>(packet[position++]);
        payloadSize += static_cast<int>(lengthByte);
    } while (lengthByte == 0xFF);

    if (payloadSize > length - position || payloadSize > adts::MaxPayloadSize) {
        logDebug("AAC packet dropped, payload length:") << payloadSize << "bytes:" << length;
        return;
    }
    const auto header = adts::header(payloadSize);
    std::copy(header.begin(), header.end(), frame_.begin());
    std::copy_n(packet + position, payloadSize, frame_.begin() + adts::HeaderSize);
    out->write(frame_.data(), adts::HeaderSize + payloadSize);
}
