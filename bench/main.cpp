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

struct Workload {
    int realTimeRounds;
    double realTimeSeconds; ///< per round
    int backToBackRounds;
    int backToBackPackets; ///< per round
    int tracedPackets;     ///< for system calls
    int countedPackets;    ///< for allocations, back to back
    int starts;
};
constexpr Workload Full{16, 1.5, 30, 1500, 100, 5000, 25};
constexpr Workload Quick{2, 1, 4, 500, 50, 2000, 5};

// Read, write and wait.
constexpr double MaxSystemCalls = 3;
// Tolerance for system calls that do not belong to a packet: one in ten packets.
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

/// Measures rounds of the daemon and the bare loop alternately. The daemon is first in every other pair.
std::pair<Rounds, Rounds> measureAlternately(Contestant &daemon, Contestant &bare, Pump::Pace pace, int rounds,
                                             int packets)
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

void measureRealTime(Contestant &daemon, Contestant &bare, const Material &material, const Workload &workload)
{
    const auto [kado, loop] = measureAlternately(daemon, bare, Pump::Pace::RealTime, workload.realTimeRounds,
                                                 packetsIn(workload.realTimeSeconds, material));
    pairedRow("real time: CPU us per packet", kado.cpuUs, loop.cpuUs);
    pairedRow("  latency to the last byte, p50 us", kado.latencyP50, loop.latencyP50);
    pairedRow("  p99 us, per round", kado.latencyP99, loop.latencyP99);
}

void measureBackToBack(Contestant &daemon, Contestant &bare, const Workload &workload)
{
    const auto [kado, loop] = measureAlternately(daemon, bare, Pump::Pace::BackToBack, workload.backToBackRounds,
                                                 workload.backToBackPackets);
    pairedRow("back to back: CPU us per packet", kado.cpuUs, loop.cpuUs);
}

void measureMemory(const Contestant &daemon, const Contestant &bare)
{
    constexpr double KibPerMib = 1024;
    const auto mib = [](const Contestant &contestant, const char *key) {
        return contestant.process().memoryKib(key) / KibPerMib;
    };
    table::counts("memory: resident MiB", mib(daemon, "Rss"), mib(bare, "Rss"));
    table::counts("  private dirty MiB", mib(daemon, "Private_Dirty"), mib(bare, "Private_Dirty"));
}

bool measureSystemCalls(Contestant &daemon, Contestant &bare, const Workload &workload)
{
    const double calls = countSystemCalls(daemon, workload.tracedPackets);
    table::counts("system calls per packet, real time", calls, countSystemCalls(bare, workload.tracedPackets));
    const bool good = calls <= MaxSystemCalls + StraySystemCalls;
    if (!good)
        std::printf("! more than %.0f system calls per packet\n", MaxSystemCalls);
    return good;
}

bool measureAllocations(const Material &material, const Workload &workload)
{
    const Allocations allocations = countAllocations(material, packetsIn(workload.realTimeSeconds, material),
                                                     workload.countedPackets);
    table::count("heap allocations per packet, real time", allocations.realTime);
    table::count("  back to back", allocations.backToBack);
    const bool good = allocations.realTime == 0 && allocations.backToBack == 0;
    if (!good)
        std::printf("! a packet must not allocate\n");
    return good;
}

bool measureStreams(const Workload &workload)
{
    bool good = true;
    for (const int mtu : {672, 1017}) {
        const Material material = makeMaterial({}, mtu);
        table::section(QStringLiteral("stream of 44.1 kHz joint stereo, bitpool 53, MTU %1: %2 ms per packet")
                           .arg(mtu)
                           .arg(material.seconds * 1000, 0, 'f', 1)
                           .toStdString());
        KadoBt daemon(material);
        BareLoop bare(material);
        daemon.warmUp();
        bare.warmUp();
        measureBackToBack(daemon, bare, workload);
        if (mtu != 672)
            continue;
        measureRealTime(daemon, bare, material, workload);
        measureMemory(daemon, bare);
        good = measureSystemCalls(daemon, bare, workload) && good;
    }
    return good;
}

void compareWithBlueAlsa(const Workload &workload)
{
    const Material material = makeMaterial({}, 672);
    table::section("the same stream compared with BlueALSA instead of the bare loop");
    KadoBt daemon(material);
    BlueAlsa peer(material);
    daemon.warmUp();
    peer.warmUp();
    measureBackToBack(daemon, peer, workload);
    measureRealTime(daemon, peer, material, workload);
    measureMemory(daemon, peer);
}

void measureStartUp(const Workload &workload)
{
    const Starts starts = measureStarts(workload.starts);
    table::section("start");
    table::row("exec to all endpoints registered, ms", figureOf(starts.registered));
    table::row("  exec to the end of --version, ms", figureOf(starts.version));
}

/// Returns the processor's name, for example "Intel(R) Xeon(R) Processor", or the architecture when it is unknown.
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
    const Workload &workload = quick ? Quick : Full;

    std::printf("%s on %d x %s, Linux %s, %s%s\n", daemonProgram().constData(), QThread::idealThreadCount(),
                processorName().constData(), qPrintable(QSysInfo::kernelVersion()),
                qPrintable(QDateTime::currentDateTimeUtc().toString(Qt::ISODate)),
                quick ? "; quick run, times are not significant" : "");
    table::header();
    bool good = measureStreams(workload);
    good = measureAllocations(makeMaterial({}, 672), workload) && good;
    measureStartUp(workload);
    if (!quick)
        compareWithBlueAlsa(workload);
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
