// SPDX-License-Identifier: MIT
#include "sim/recording.h"

#include <QFile>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <samplerate.h>
#include <sndfile.hh>
#include <vector>

namespace sim {

namespace {

constexpr int Channels = 2;

std::vector<std::int16_t> samplesOf(const Recording &recording)
{
    std::vector<std::int16_t> samples(static_cast<size_t>(recording.pcm.size()) / sizeof(std::int16_t));
    std::memcpy(samples.data(), recording.pcm.constData(), samples.size() * sizeof(std::int16_t));
    return samples;
}

/// Resamples interleaved stereo to `ratio` times its sampling rate. Returns nothing when libsamplerate does not support
/// the ratio.
std::vector<float> resampled(const std::vector<float> &samples, double ratio)
{
    const size_t frames = samples.size() / Channels;
    std::vector<float> converted(static_cast<size_t>(std::ceil(static_cast<double>(frames) * ratio) + 1) * Channels);
    SRC_DATA data{};
    data.data_in = samples.data();
    data.input_frames = static_cast<long>(frames);
    data.data_out = converted.data();
    data.output_frames = static_cast<long>(converted.size() / Channels);
    data.src_ratio = ratio;
    src_simple(&data, SRC_SINC_MEDIUM_QUALITY, Channels);
    converted.resize(static_cast<size_t>(data.output_frames_gen) * Channels);
    return converted;
}

} // namespace

Recording readRecordings(const QStringList &paths, QString &error)
{
    Recording whole;
    whole.channels = Channels;
    for (const QString &path : paths) {
        SndfileHandle file(QFile::encodeName(path).constData());
        const auto channels = static_cast<size_t>(file.channels());
        std::vector<float> read(static_cast<size_t>(file.frames()) * channels);
        const auto frames = static_cast<size_t>(file.readf(read.data(), file.frames()));
        std::vector<float> samples;
        for (size_t i = 0; i < frames; ++i) {
            samples.push_back(read[i * channels]);
            samples.push_back(read[i * channels + (channels > 1 ? 1 : 0)]);
        }

        if (whole.sampleRate == 0) {
            const int rates[] = {16000, 32000, 44100, 48000}; // those of SBC
            const bool hasRate = std::find(std::begin(rates), std::end(rates), file.samplerate()) != std::end(rates);
            whole.sampleRate = hasRate ? file.samplerate() : 44100;
        }
        if (frames > 0 && file.samplerate() != whole.sampleRate)
            samples = resampled(samples, static_cast<double>(whole.sampleRate) / file.samplerate());
        if (samples.empty()) {
            error = path + QStringLiteral(": ")
                + (file.error() ? QString::fromLocal8Bit(file.strError()) : QStringLiteral("no audio in it"));
            return {};
        }
        std::vector<std::int16_t> pcm(samples.size());
        src_float_to_short_array(samples.data(), pcm.data(), static_cast<int>(samples.size()));
        whole.pcm.append(reinterpret_cast<const char *>(pcm.data()),
                         static_cast<int>(pcm.size() * sizeof(std::int16_t)));
    }
    return whole;
}

bool writeWav(const QString &path, const Recording &recording)
{
    SndfileHandle file(QFile::encodeName(path).constData(), SFM_WRITE, SF_FORMAT_WAV | SF_FORMAT_PCM_16,
                       recording.channels, recording.sampleRate);
    const std::vector<std::int16_t> samples = samplesOf(recording);
    return file.write(samples.data(), static_cast<sf_count_t>(samples.size()))
        == static_cast<sf_count_t>(samples.size());
}

double snrDb(const Recording &original, const Recording &heard)
{
    // Delay of analysis and synthesis: 80 filter taps (10 for each of 8 subbands), minus 7 (a block of 8 samples, minus
    // 1).
    constexpr size_t SbcDelayFrames = 73;
    const std::vector<std::int16_t> sent = samplesOf(original);
    const std::vector<std::int16_t> received = samplesOf(heard);
    const size_t delay = SbcDelayFrames * static_cast<size_t>(original.channels);
    double signal = 0;
    double noise = 0;
    for (size_t i = 0; i < sent.size() && i + delay < received.size(); ++i) {
        const double sample = sent[i];
        const double error = sample - received[i + delay];
        signal += sample * sample;
        noise += error * error;
    }
    return signal == 0 ? 0 : 10 * std::log10(signal / noise);
}

} // namespace sim
