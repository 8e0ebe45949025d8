// The codecs without sockets and event loop: CodecSBC into a device that drops what it gets against the bare loop, and
// CodecAAC. The tail of the table that kado-bench begins.

#include "bench/material.h"
#include "bench/sbcloop.h"
#include "bench/table.h"
#include "codec/codecaac.h"
#include "codec/codecsbc.h"

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

struct Configuration {
    int sampleRate;
    int bitpool;
    int mtu;

    std::string name() const
    {
        return QStringLiteral("SBC %1 kHz, bitpool %2, MTU %3: us a packet")
            .arg(sampleRate / 1000.0)
            .arg(bitpool)
            .arg(mtu)
            .toStdString();
    }
};
constexpr Configuration Configurations[] = {
    {44100, 53, 672}, {44100, 53, 1017}, {48000, 51, 672}, {48000, 51, 1017}, {44100, 35, 672}, {44100, 35, 1017},
};
const std::string AacName = "AAC, payload of 500 bytes: ns a packet";
const std::string Bare = "bare ";

/// Hands packets to `take` over and over.
template <typename Take>
void feed(benchmark::State &state, const QList<QByteArray> &packets, Take take)
{
    auto next = packets.cbegin();
    for (auto _ : state) {
        take(*next);
        if (++next == packets.cend())
            next = packets.cbegin();
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
    sbc_t decoder;
    sbc_init(&decoder, 0);
    std::vector<char> pcm(static_cast<std::size_t>(material.pcmSize));
    feed(state, material.packets, [&](const QByteArray &packet) {
        decodePacket(decoder, packet.constData(), static_cast<std::size_t>(packet.size()), pcm.data(), pcm.size());
        benchmark::DoNotOptimize(pcm.data());
    });
    sbc_finish(&decoder);
}

void runCodecAac(benchmark::State &state)
{
    CodecAAC codec;
    runCodec(state, codec, {sim::aacPacket(QByteArray(500, 'a'))}, 672);
}

/// Collects the repetitions and prints them as rows of the table.
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

    /// Whether everything was measured.
    bool print() const
    {
        table::section("codec alone");
        for (const Configuration &configuration : Configurations) {
            const std::string name = configuration.name();
            if (times_.count(name) == 0 || times_.count(Bare + name) == 0)
                return false;
            const Figure codec = figureOf(times_.at(name));
            const Figure bare = figureOf(times_.at(Bare + name));
            table::row(name, codec, bare, ratio(codec, bare));
        }
        if (times_.count(AacName) == 0)
            return false;
        table::row(AacName, figureOf(times_.at(AacName)));
        return true;
    }

private:
    std::map<std::string, std::vector<double>> times_;
};

void registerAll(const std::vector<Material> &materials)
{
    for (const Material &material : materials) {
        const std::string name = Configuration{material.format.sampleRate, material.format.bitpool, material.mtu}
                                     .name();
        benchmark::RegisterBenchmark(name.c_str(), runCodecSbc, material)->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark((Bare + name).c_str(), runBareSbc, material)->Unit(benchmark::kMicrosecond);
    }
    benchmark::RegisterBenchmark(AacName.c_str(), runCodecAac)->Unit(benchmark::kNanosecond);
}

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

    std::vector<Material> materials;
    for (const Configuration &configuration : Configurations) {
        sim::SbcFormat format;
        format.sampleRate = configuration.sampleRate;
        format.bitpool = configuration.bitpool;
        materials.push_back(makeMaterial(format, configuration.mtu));
    }
    registerAll(materials);
    Rows rows;
    benchmark::RunSpecifiedBenchmarks(&rows);
    return rows.print() ? EXIT_SUCCESS : EXIT_FAILURE;
}
