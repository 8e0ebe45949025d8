// SPDX-License-Identifier: MIT
// Measures the codecs without sockets and event loop: the SBC decoder against libsbc, CodecSBC (into a device that
// drops the PCM) against the bare loop, and CodecAAC alone. Prints the last part of the table that kado-bench begins.

#include "bench/material.h"
#include "bench/sbc/configurations.h"
#include "bench/sbc/libsbc.h"
#include "bench/sbcloop.h"
#include "bench/table.h"
#include "codec/codecaac.h"
#include "codec/codecsbc.h"
#include "tests/sbc/frames.h"

#include <QCoreApplication>
#include <QIODevice>

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <map>

using namespace bench;

namespace {

class NullDevice final : public QIODevice {
public:
    NullDevice() { open(QIODevice::WriteOnly | QIODevice::Unbuffered); }

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *data, qint64 size) override
    {
        benchmark::DoNotOptimize(data);
        return size;
    }
};

/// Passes packets or frames to `take` in a loop.
template <typename Inputs, typename Take>
void feed(benchmark::State &state, const Inputs &inputs, Take take)
{
    auto next = inputs.cbegin();
    for (auto _ : state) {
        take(*next);
        if (++next == inputs.cend())
            next = inputs.cbegin();
    }
}

void runCodec(benchmark::State &state, Codec &codec, const QList<QByteArray> &packets, int mtu)
{
    NullDevice out;
    codec.prepare(mtu);
    feed(state, packets, [&](const QByteArray &packet) {
        codec.processPacket(packet.constData(), static_cast<int>(packet.size()), &out);
    });
}

void runCodecSbc(benchmark::State &state, const Material &material)
{
    CodecSBC codec;
    runCodec(state, codec, material.packets, material.mtu);
}

void runBareSbc(benchmark::State &state, const Material &material)
{
    sbc::Decoder decoder;
    std::vector<char> pcm(static_cast<std::size_t>(material.pcmSize));
    feed(state, material.packets, [&](const QByteArray &packet) {
        decodePacket(decoder, packet.constData(), static_cast<std::size_t>(packet.size()), pcm.data(), pcm.size());
        benchmark::DoNotOptimize(pcm.data());
    });
}

void runCodecAac(benchmark::State &state)
{
    CodecAAC codec;
    runCodec(state, codec, {sim::aacPacket(QByteArray(500, 'a'))}, 672);
}

template <typename Decoder>
void runDecoder(benchmark::State &state, const SbcConfiguration &configuration)
{
    constexpr int Frames = 100;
    frames::Random random(1); // NOLINT: fixed seed, for the same sound in every run
    const auto ready = frames::encode(random, configuration.fields, configuration.bitpool, Frames);
    Decoder decoder;
    char pcm[sbc::Decoder::MaxPcmSize];
    feed(state, ready, [&](const frames::Bytes &frame) {
        std::size_t written = 0;
        decoder.decode(frame.data(), frame.size(), pcm, sizeof pcm, written);
        benchmark::DoNotOptimize(pcm);
    });
}

/// Collects the times of all repetitions.
class Rows final : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context &) override { return true; }

    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Iteration)
                times_[run.run_name.function_name].push_back(run.GetAdjustedCPUTime());
        }
    }

    /// Returns the times of a benchmark. Empty when it did not run.
    std::vector<double> timesOf(const std::string &name) const
    {
        const auto found = times_.find(name);
        return found == times_.end() ? std::vector<double>() : found->second;
    }

private:
    std::map<std::string, std::vector<double>> times_;
};

/// A section of the table: pairs of a benchmark and its baseline.
class Section {
public:
    Section(const char *title, benchmark::TimeUnit unit) : title_(title), unit_(unit) {}

    template <typename Function, typename Baseline, typename Argument>
    void add(const std::string &name, Function *function, Baseline *baseline, const Argument &argument)
    {
        names_.push_back(name);
        benchmark::RegisterBenchmark(name.c_str(), function, argument)->Unit(unit_);
        benchmark::RegisterBenchmark((BaselinePrefix + name).c_str(), baseline, argument)->Unit(unit_);
    }

    /// Prints the rows. Returns false when a benchmark did not run.
    bool print(const Rows &rows) const
    {
        table::section(title_);
        for (const std::string &name : names_) {
            const Figure figure = figureOf(rows.timesOf(name));
            const Figure baseline = figureOf(rows.timesOf(BaselinePrefix + name));
            if (figure.median == 0 || baseline.median == 0)
                return false;
            table::row(name, figure, baseline, ratio(figure, baseline));
        }
        return true;
    }

private:
    const std::string BaselinePrefix = "baseline of ";
    const char *title_;
    benchmark::TimeUnit unit_;
    std::vector<std::string> names_;
};

const std::string AacName = "AAC, payload of 500 bytes: ns per packet";

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const bool quick = QCoreApplication::arguments().contains(QStringLiteral("--quick"));
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});

    std::string words[] = {
        argv[0],
        "--benchmark_enable_random_interleaving=true",
        quick ? "--benchmark_repetitions=3" : "--benchmark_repetitions=15",
        quick ? "--benchmark_min_time=0.01" : "--benchmark_min_time=0.05",
    };
    std::vector<char *> pointers;
    for (std::string &word : words)
        pointers.push_back(word.data());
    auto count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());

    Section decoders("decoder alone: ns per frame, compared with libsbc", benchmark::kNanosecond);
    for (const SbcConfiguration &configuration : SbcConfigurations)
        decoders.add(configuration.name, runDecoder<sbc::Decoder>, runDecoder<Libsbc>, configuration);
    Section codecs("codec alone: us per packet, compared with a bare loop with the same decoder",
                   benchmark::kMicrosecond);
    for (const int bitpool : {53, 35}) {
        for (const int mtu : {672, 1017}) {
            sim::SbcFormat format;
            format.bitpool = bitpool;
            codecs.add(QStringLiteral("SBC 44.1 kHz, bitpool %1, MTU %2").arg(bitpool).arg(mtu).toStdString(),
                       runCodecSbc, runBareSbc, makeMaterial(format, mtu));
        }
    }
    benchmark::RegisterBenchmark(AacName.c_str(), runCodecAac)->Unit(benchmark::kNanosecond);

    Rows rows;
    benchmark::RunSpecifiedBenchmarks(&rows);
    const bool good = decoders.print(rows) && codecs.print(rows);
    table::row(AacName, figureOf(rows.timesOf(AacName)));
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
