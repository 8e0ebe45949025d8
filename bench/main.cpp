// SPDX-License-Identifier: MIT
#include "bench/allocations.h"
#include "bench/contestants.h"
#include "bench/startup.h"
#include "bench/systemcalls.h"
#include "bench/table.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QSysInfo>
#include <QThread>

#include <cstdio>
#include <cstdlib>

using namespace bench;

namespace {

/// How much of everything is measured.
struct Extent {
    int realTimeRounds;
    double realTimeSeconds; ///< a round
    int backToBackRounds;
    int backToBackPackets; ///< a round
    int tracedPackets;
    int countedPackets;
    int starts;
};
constexpr Extent Full{16, 1.5, 30, 1500, 100, 5000, 25};
constexpr Extent Quick{2, 1, 4, 500, 50, 2000, 5};

// The read, the write and the wait in between.
constexpr double MaxSystemCalls = 3;
// Something that has to do with no packet may fall into the count: not in every tenth, though.
constexpr double StraySystemCalls = 0.1;

struct Rounds {
    std::vector<double> cpuUs;
    std::vector<double> latencyP50;
    std::vector<double> latencyP99;

    void add(const Pump::Run &run)
    {
        cpuUs.push_back(run.cpuUs);
        latencyP50.push_back(quantile(run.latencyUs, 0.5));
        latencyP99.push_back(quantile(run.latencyUs, 0.99));
    }
};

/// Rounds of the daemon and the bare loop in turns, either first every other time.
std::pair<Rounds, Rounds> takeTurns(Contestant &daemon, Contestant &bare, Pump::Pace pace, int rounds, int packets)
{
    std::pair<Rounds, Rounds> taken;
    for (int i = 0; i < rounds; ++i) {
        if (i % 2 == 0)
            taken.first.add(daemon.pump().run(pace, packets));
        taken.second.add(bare.pump().run(pace, packets));
        if (i % 2 == 1)
            taken.first.add(daemon.pump().run(pace, packets));
    }
    return taken;
}

void pairedRow(const char *what, const std::vector<double> &daemon, const std::vector<double> &bare)
{
    table::row(what, figureOf(daemon), figureOf(bare), pairedRatio(daemon, bare));
}

int packetsIn(double seconds, const Material &material)
{
    return static_cast<int>(seconds / material.seconds);
}

void measureRealTime(Contestant &daemon, Contestant &bare, const Material &material, const Extent &extent)
{
    const auto [kado, loop] = takeTurns(daemon, bare, Pump::Pace::RealTime, extent.realTimeRounds,
                                        packetsIn(extent.realTimeSeconds, material));
    pairedRow("real time: CPU us a packet", kado.cpuUs, loop.cpuUs);
    pairedRow("  latency to the last byte, p50 us", kado.latencyP50, loop.latencyP50);
    pairedRow("  p99 us, of a round", kado.latencyP99, loop.latencyP99);
}

void measureBackToBack(Contestant &daemon, Contestant &bare, const Extent &extent)
{
    const auto [kado, loop] = takeTurns(daemon, bare, Pump::Pace::BackToBack, extent.backToBackRounds,
                                        extent.backToBackPackets);
    pairedRow("back to back: CPU us a packet", kado.cpuUs, loop.cpuUs);
}

void measureMemory(const Contestant &daemon, const Contestant &bare)
{
    constexpr double KibAMib = 1024;
    const auto mib = [](const Contestant &contestant, const char *key) {
        return contestant.process().memoryKib(key) / KibAMib;
    };
    table::counts("memory: resident MiB", mib(daemon, "Rss"), mib(bare, "Rss"));
    table::counts("  private dirty MiB", mib(daemon, "Private_Dirty"), mib(bare, "Private_Dirty"));
}

bool measureSystemCalls(Contestant &daemon, Contestant &bare, const Extent &extent)
{
    const double calls = countSystemCalls(daemon, extent.tracedPackets);
    table::counts("system calls a packet, real time", calls, countSystemCalls(bare, extent.tracedPackets));
    const bool good = calls <= MaxSystemCalls + StraySystemCalls;
    if (!good)
        std::printf("! more than %.0f system calls a packet\n", MaxSystemCalls);
    return good;
}

bool measureAllocations(const Material &material, const Extent &extent)
{
    const Allocations allocations = countAllocations(material, packetsIn(extent.realTimeSeconds, material),
                                                     extent.countedPackets);
    table::count("heap allocations a packet, real time", allocations.realTime);
    table::count("  back to back", allocations.backToBack);
    const bool good = allocations.realTime == 0 && allocations.backToBack == 0;
    if (!good)
        std::printf("! a packet must not allocate\n");
    return good;
}

bool measureStreams(const Extent &extent)
{
    bool good = true;
    for (const int mtu : {672, 1017}) {
        const Material material = makeMaterial({}, mtu);
        table::section(QStringLiteral("stream of 44.1 kHz joint stereo, bitpool 53, MTU %1: %2 ms a packet")
                           .arg(mtu)
                           .arg(material.seconds * 1000, 0, 'f', 1)
                           .toStdString());
        KadoBt daemon(material);
        BareLoop bare(material);
        daemon.warmUp();
        bare.warmUp();
        measureBackToBack(daemon, bare, extent);
        if (mtu != 672)
            continue;
        measureRealTime(daemon, bare, material, extent);
        measureMemory(daemon, bare);
        good = measureSystemCalls(daemon, bare, extent) && good;
    }
    return good;
}

void measureBesideBlueAlsa(const Extent &extent)
{
    const Material material = makeMaterial({}, 672);
    table::section("the same stream beside BlueALSA, which stands in the place of the bare loop");
    KadoBt daemon(material);
    BlueAlsa peer(material);
    daemon.warmUp();
    peer.warmUp();
    measureBackToBack(daemon, peer, extent);
    measureRealTime(daemon, peer, material, extent);
    measureMemory(daemon, peer);
}

void measureStartUp(const Extent &extent)
{
    const Starts starts = measureStarts(extent.starts);
    table::section("start");
    table::row("exec to all endpoints registered, ms", figureOf(starts.registered));
    table::row("  exec to the end of --version, ms", figureOf(starts.version));
}

/// "Intel(R) Xeon(R) Processor", or what stands for it.
QByteArray processorName()
{
    QFile file(QStringLiteral("/proc/cpuinfo"));
    if (file.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> lines = file.readAll().split('\n');
        for (const QByteArray &line : lines) {
            if (line.startsWith("model name"))
                return line.mid(line.indexOf(':') + 1).trimmed();
        }
    }
    return QSysInfo::currentCpuArchitecture().toLatin1();
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const bool quick = QCoreApplication::arguments().contains(QStringLiteral("--quick"));
    const Extent &extent = quick ? Quick : Full;

    std::printf("%s on %d x %s, Linux %s, %s%s\n", daemonProgram().constData(), QThread::idealThreadCount(),
                processorName().constData(), qPrintable(QSysInfo::kernelVersion()),
                qPrintable(QDateTime::currentDateTimeUtc().toString(Qt::ISODate)),
                quick ? "; too quick for its times to mean much" : "");
    table::header();
    bool good = measureStreams(extent);
    good = measureAllocations(makeMaterial({}, 672), extent) && good;
    measureStartUp(extent);
    if (!quick)
        measureBesideBlueAlsa(extent);
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
