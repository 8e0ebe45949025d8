#include "sim/sbcstream.h"

#include <QFile>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <samplerate.h>
#include <sbc/sbc.h>
#include <sndfile.h>
#include <vector>

namespace sim {

namespace {

constexpr int RtpHeaderSize = 12;
constexpr int PayloadOffset = RtpHeaderSize + 1;
constexpr int MaxFramesAPacket = 15; // the count has four bits
constexpr int BytesASample = 2;
constexpr size_t MaxFramePcm = 16 * 8 * 2 * BytesASample; // blocks, subbands, channels

class Sbc {
public:
    Sbc() { sbc_init(&sbc, 0); }
    ~Sbc() { sbc_finish(&sbc); }
    Sbc(const Sbc &) = delete;
    Sbc &operator=(const Sbc &) = delete;

    sbc_t sbc;
};

/// The bit of the choice at `index`, where bit 0 stands for the last of `count` choices; none for one behind the last.
unsigned choiceBit(int index, int count)
{
    return (1U << (count - 1)) >> index;
}

void appendBigEndian(QByteArray &bytes, std::uint32_t value, int count)
{
    for (int shift = 8 * (count - 1); shift >= 0; shift -= 8)
        bytes.append(static_cast<char>(value >> shift & 0xFF));
}

/// RFC 3550, 5.1: version 2, no padding, extension or sources, and payload type 96, the first dynamic one.
QByteArray rtpHeader(std::uint16_t sequence, std::uint32_t timestamp)
{
    QByteArray header("\x80\x60", 2);
    appendBigEndian(header, sequence, 2);
    appendBigEndian(header, timestamp, 4);
    appendBigEndian(header, 1, 4); // the source's identifier
    return header;
}

std::vector<std::int16_t> samplesOf(const QByteArray &pcm)
{
    std::vector<std::int16_t> samples(static_cast<size_t>(pcm.size()) / BytesASample);
    std::memcpy(samples.data(), pcm.constData(), samples.size() * BytesASample);
    return samples;
}

/// A stretch of samples compared with the same stretch of what was heard, `delay` samples later.
struct Comparison {
    double signal = 0;
    double noise = 0;
};

Comparison compare(const std::vector<std::int16_t> &original, const std::vector<std::int16_t> &heard, size_t delay,
                   size_t begin, size_t end)
{
    Comparison sums;
    end = std::min({end, original.size(), heard.size() - std::min(delay, heard.size())});
    for (size_t i = begin; i < end; ++i) {
        const double sample = original[i];
        const double error = sample - heard[i + delay];
        sums.signal += sample * sample;
        sums.noise += error * error;
    }
    return sums;
}

/// Start of the loudest stretch of `length` samples: where a recording begins in silence every delay fits.
size_t loudestStretch(const std::vector<std::int16_t> &samples, size_t length)
{
    size_t loudest = 0;
    double most = -1;
    for (size_t begin = 0; begin + length <= samples.size(); begin += length) {
        double energy = 0;
        for (size_t i = begin; i < begin + length; ++i)
            energy += static_cast<double>(samples[i]) * samples[i];
        if (energy > most) {
            most = energy;
            loudest = begin;
        }
    }
    return loudest;
}

/// `samples` of `channels` interleaved channels at `ratio` times their sampling rate; false with libsamplerate's
/// number.
int resample(std::vector<float> &samples, int channels, double ratio)
{
    const size_t frames = samples.size() / static_cast<size_t>(channels);
    const size_t room = static_cast<size_t>(std::ceil(static_cast<double>(frames) * ratio)) + 1;
    std::vector<float> converted(room * static_cast<size_t>(channels));
    SRC_DATA data{};
    data.data_in = samples.data();
    data.input_frames = static_cast<long>(frames);
    data.data_out = converted.data();
    data.output_frames = static_cast<long>(room);
    data.src_ratio = ratio;
    const int error = src_simple(&data, SRC_SINC_MEDIUM_QUALITY, channels);
    converted.resize(static_cast<size_t>(data.output_frames_gen) * static_cast<size_t>(channels));
    samples = std::move(converted);
    return error;
}

const int SbcRates[] = {16000, 32000, 44100, 48000};

bool isSbcRate(int rate)
{
    return std::find(std::begin(SbcRates), std::end(SbcRates), rate) != std::end(SbcRates);
}

} // namespace

QByteArray SbcFormat::configuration() const
{
    const auto rate = static_cast<int>(std::find(std::begin(SbcRates), std::end(SbcRates), sampleRate) - SbcRates);
    const unsigned octets[] = {
        choiceBit(rate, 4) << 4 | choiceBit(static_cast<int>(mode), 4),
        choiceBit(blocks / 4 - 1, 4) << 4 | choiceBit(subbands / 4 - 1, 2) << 2 | (snr ? 2U : 1U),
        2U,
        static_cast<unsigned>(bitpool),
    };
    QByteArray bytes;
    for (const unsigned octet : octets)
        bytes.append(static_cast<char>(octet));
    return bytes;
}

QList<QByteArray> encodeSbc(const QByteArray &pcm, const SbcFormat &format, int mtu)
{
    Sbc encoder;
    encoder.sbc.frequency = static_cast<uint8_t>(std::find(std::begin(SbcRates), std::end(SbcRates), format.sampleRate)
                                                 - SbcRates);
    encoder.sbc.mode = static_cast<uint8_t>(format.mode);
    encoder.sbc.blocks = static_cast<uint8_t>(format.blocks / 4 - 1);
    encoder.sbc.subbands = static_cast<uint8_t>(format.subbands / 4 - 1);
    encoder.sbc.allocation = format.snr ? SBC_AM_SNR : SBC_AM_LOUDNESS;
    encoder.sbc.bitpool = static_cast<uint8_t>(format.bitpool);

    const auto frameLength = static_cast<int>(sbc_get_frame_length(&encoder.sbc));
    const auto framePcm = static_cast<int>(sbc_get_codesize(&encoder.sbc));
    const int framesAPacket = std::min(MaxFramesAPacket, (mtu - PayloadOffset) / frameLength);

    QList<QByteArray> packets;
    QByteArray rest = pcm;
    rest.append((framePcm - static_cast<int>(pcm.size() % framePcm)) % framePcm, '\0');
    const auto frames = static_cast<int>(rest.size() / framePcm);
    const int samplesAFrame = format.blocks * format.subbands;
    QByteArray frame(frameLength, '\0');
    for (int first = 0; first < frames && framesAPacket > 0; first += framesAPacket) {
        const int count = std::min(framesAPacket, frames - first);
        QByteArray packet = rtpHeader(static_cast<std::uint16_t>(packets.size()),
                                      static_cast<std::uint32_t>(first) * static_cast<std::uint32_t>(samplesAFrame));
        packet.append(static_cast<char>(count));
        for (int i = first; i < first + count; ++i) {
            ssize_t written = 0;
            sbc_encode(&encoder.sbc, rest.constData() + static_cast<ptrdiff_t>(i) * framePcm,
                       static_cast<size_t>(framePcm), frame.data(), static_cast<size_t>(frameLength), &written);
            packet.append(frame.constData(), static_cast<int>(written));
        }
        packets.append(packet);
    }
    return packets;
}

QByteArray decodeSbc(const QList<QByteArray> &packets)
{
    Sbc decoder;
    QByteArray pcm;
    char frame[MaxFramePcm];
    for (const QByteArray &packet : packets) {
        const char *in = packet.constData() + PayloadOffset;
        auto remaining = static_cast<ssize_t>(packet.size()) - PayloadOffset;
        while (remaining > 0) {
            size_t written = 0;
            const ssize_t consumed = sbc_decode(&decoder.sbc, in, static_cast<size_t>(remaining), frame, sizeof frame,
                                                &written);
            if (consumed <= 0)
                break;
            pcm.append(frame, static_cast<int>(written));
            in += consumed;
            remaining -= consumed;
        }
    }
    return pcm;
}

double packetSeconds(const QByteArray &packet, const SbcFormat &format)
{
    const int frames = packet.size() < PayloadOffset ? 0 : packet.at(RtpHeaderSize) & 0xF;
    return static_cast<double>(frames * format.blocks * format.subbands) / format.sampleRate;
}

QByteArray aacPacket(const QByteArray &payload, std::uint16_t sequence)
{
    constexpr std::uint32_t SamplesAFrame = 1024;
    QByteArray packet = rtpHeader(sequence, sequence * SamplesAFrame);
    packet.append("\x47\xFC\x00\x00\xB0\x90\x80\x03\x00", 9); // AAC LC, 44100 Hz, two channels
    packet.append(static_cast<int>(payload.size() / 0xFF), '\xFF');
    packet.append(static_cast<char>(payload.size() % 0xFF));
    packet.append(payload);
    return packet;
}

double snrDb(const QByteArray &original, const QByteArray &heard, int channels)
{
    constexpr size_t MaxDelayFrames = 512;
    constexpr size_t SearchedFrames = 48000; // a second of sound tells the delay
    if (original.isEmpty() || heard.isEmpty())
        return 0;

    const std::vector<std::int16_t> sent = samplesOf(original);
    const std::vector<std::int16_t> received = samplesOf(heard);
    const auto step = static_cast<size_t>(channels);
    const size_t length = SearchedFrames * step;
    const size_t begin = loudestStretch(sent, length);
    size_t best = 0;
    double leastNoise = std::numeric_limits<double>::infinity();
    for (size_t delay = 0; delay <= MaxDelayFrames * step; delay += step) {
        const double noise = compare(sent, received, delay, begin, begin + length).noise;
        if (noise < leastNoise) {
            leastNoise = noise;
            best = delay;
        }
    }
    const Comparison all = compare(sent, received, best, 0, sent.size());
    return 10 * std::log10(all.signal / all.noise);
}

Recording readRecording(const QString &path, QString &error)
{
    SF_INFO info{};
    SNDFILE *const file = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    if (!file) {
        error = QStringLiteral("%1: %2").arg(path, QString::fromLocal8Bit(sf_strerror(nullptr)));
        return {};
    }

    constexpr size_t ChunkFrames = 4096;
    constexpr int Channels = 2;
    std::vector<float> samples;
    std::vector<float> chunk(ChunkFrames * static_cast<size_t>(info.channels));
    for (;;) {
        const sf_count_t frames = sf_readf_float(file, chunk.data(), static_cast<sf_count_t>(ChunkFrames));
        if (frames <= 0)
            break;
        for (sf_count_t i = 0; i < frames; ++i) {
            const float *const frame = chunk.data() + i * info.channels;
            samples.push_back(frame[0]);
            samples.push_back(frame[info.channels > 1 ? 1 : 0]);
        }
    }
    sf_close(file);

    Recording recording;
    recording.channels = Channels;
    recording.sampleRate = info.samplerate;
    if (!isSbcRate(info.samplerate)) {
        recording.sampleRate = 44100;
        const int failure = resample(samples, Channels, static_cast<double>(recording.sampleRate) / info.samplerate);
        if (failure != 0) {
            error = QStringLiteral("%1: %2").arg(path, QString::fromLocal8Bit(src_strerror(failure)));
            return {};
        }
    }
    if (samples.empty()) {
        error = QStringLiteral("%1: no audio in it").arg(path);
        return {};
    }
    recording.pcm.resize(static_cast<int>(samples.size()) * BytesASample);
    std::vector<std::int16_t> whole(samples.size());
    src_float_to_short_array(samples.data(), whole.data(), static_cast<int>(samples.size()));
    std::memcpy(recording.pcm.data(), whole.data(), whole.size() * BytesASample);
    return recording;
}

bool writeWav(const QString &path, const Recording &recording)
{
    SF_INFO info{};
    info.samplerate = recording.sampleRate;
    info.channels = recording.channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE *const file = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    if (!file)
        return false;
    const std::vector<std::int16_t> samples = samplesOf(recording.pcm);
    const auto count = static_cast<sf_count_t>(samples.size());
    const bool written = sf_write_short(file, samples.data(), count) == count;
    return sf_close(file) == 0 && written;
}

} // namespace sim
