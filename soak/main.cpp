#include "sim/waiting.h"
#include "soak/soakboard.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <csignal>
#include <cstdio>
#include <numeric>

using namespace sim;

namespace {

constexpr int States = SoakBoard::Idle | SoakBoard::Connected | SoakBoard::Configured | SoakBoard::Streaming;
constexpr int There = States & ~SoakBoard::Idle;

/// What may be done in which states, and how often compared with the others.
const struct Step {
    const char *name;
    int states;
    int weight;
    bool (SoakBoard::*take)();
} Steps[] = {
    {"connect", SoakBoard::Idle, 40, &SoakBoard::connectPhone},
    {"configure", SoakBoard::Connected, 40, &SoakBoard::configure},
    {"start", SoakBoard::Configured, 40, &SoakBoard::start},
    {"play", SoakBoard::Streaming, 40, &SoakBoard::play},
    {"suspend", SoakBoard::Streaming, 12, &SoakBoard::suspend},
    {"clear", SoakBoard::Configured, 8, &SoakBoard::clear},
    {"switch codec", SoakBoard::Configured | SoakBoard::Streaming, 4, &SoakBoard::switchCodec},
    {"hang up", There, 4, &SoakBoard::hangUp},
    {"swap clients", SoakBoard::Streaming, 12, &SoakBoard::swapClient},
    {"client leaves", SoakBoard::Streaming, 6, &SoakBoard::clientLeaves},
    {"slow client", SoakBoard::Streaming, 8, &SoakBoard::slowClient},
    {"slow client at the end", SoakBoard::Streaming, 4, &SoakBoard::slowClientAtTheEnd},
    {"clients come and go", States, 2, &SoakBoard::clientsComeAndGo},
    {"select Bluetooth", States, 4, &SoakBoard::selectBluetooth},
    {"speaker disconnects", There, 1, &SoakBoard::disconnectPhone},
    {"rename", States, 2, &SoakBoard::rename},
    {"select configuration", States, 1, &SoakBoard::selectConfiguration},
    {"second phone", There, 3, &SoakBoard::secondPhone},
    {"damaged packets", SoakBoard::Streaming, 12, &SoakBoard::damagedPackets},
    {"empty packet", SoakBoard::Streaming, 1, &SoakBoard::emptyPacket},
    {"deaf client", SoakBoard::Streaming, 2, &SoakBoard::deafClient},
    {"lose link", SoakBoard::Streaming, 4, &SoakBoard::loseLink},
    {"slow BlueZ", States, 8, &SoakBoard::slowBluez},
    {"slow BlueZ", SoakBoard::Idle | SoakBoard::Configured, 8, &SoakBoard::slowBluez}, // the phone waits for it
    {"second adapter", States, 2, &SoakBoard::secondAdapter},
    {"remove adapter", States, 1, &SoakBoard::removeAdapter},
    {"crash BlueZ", States, 2, &SoakBoard::crashBluez},
    {"restart BlueZ", States, 1, &SoakBoard::restartBluez},
    {"restart BlueZ with phone", States, 1, &SoakBoard::restartBluezWithPhone},
    {"player fault", States, 1, &SoakBoard::playerFault},
};

constexpr double MsAMinute = 60'000;

// Most kinds of steps have happened by then, and what it takes to do them has been taken. A number, not a time: resting
// is part of the story.
constexpr int WarmUpSteps = 400;
// A run on a slow machine takes longer than it was asked to rather than say nothing about leaks.
constexpr int LeastSteps = 2 * WarmUpSteps;

// The memory that a run may grow by once everything has happened. Between two moments of rest the heap differs by a few
// pages more or less; a leak of a packet's size would pass this within a minute.
constexpr int MaxGrowthKib = 1024;

// Requests to the player are given up after ten seconds at most, and with them their connections.
constexpr int RestMs = 15'000;

const Step &choose(SoakBoard &board)
{
    const auto weight = [&](const Step &step) { return (step.states & board.state()) != 0 ? step.weight : 0; };
    int place = board.random().below(std::accumulate(std::begin(Steps), std::end(Steps), 0,
                                                     [&](int sum, const Step &step) { return sum + weight(step); }));
    const Step *step = Steps;
    while (place >= weight(*step))
        place -= weight(*step++);
    return *step;
}

/// What the daemon holds at rest. Connections of requests that hang go after a while: as few descriptors as `fewest`
/// are awaited, and those to spare.
SoakFootprint footprintAtRest(SoakBoard &board, int fewest)
{
    waitFor([&] { return board.daemon().openDescriptors() <= fewest + SparePlayerSockets; }, RestMs);
    return SoakFootprint::of(board.daemon());
}

void insistOnFootprint(SoakReport &report, const SoakFootprint &atStart, const SoakFootprint &atEnd)
{
    report.insist(atEnd.descriptors <= atStart.descriptors + SparePlayerSockets,
                  QStringLiteral("the daemon leaks descriptors"));
#ifndef KADO_SANITIZED // which keeps what is freed
    report.insist(atEnd.residentKib - atStart.residentKib <= MaxGrowthKib
                      && atEnd.privateDirtyKib - atStart.privateDirtyKib <= MaxGrowthKib,
                  QStringLiteral("the daemon's memory has grown by more than %1 KiB").arg(MaxGrowthKib));
#endif
}

/// Runs a board at random for `minutes` (longer where that is less than 800 steps), the same story for the same seed,
/// as fast as the daemon goes: streams, clients and phones that come and go, and faults in between; everything that is
/// heard and told is compared. Ends with a table. Stops at the first fault. Returns the exit status of the program: 0
/// when everything was as it should be.
int run(double minutes, quint32 seed)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // a person follows it, also through a pipe
    std::printf("Soak of %g min, seed %u\n", minutes, seed);
    SoakReport report(seed);
    SoakBoard board(report, seed);
    QElapsedTimer clock;
    clock.start();
    const auto minutesGone = [&] { return static_cast<double>(clock.elapsed()) / MsAMinute; };

    SoakFootprint atStart;
    int descriptors = 0;
    double nextMinute = 1;
    if (board.startDaemon()) {
        descriptors = board.daemon().openDescriptors();
        int number = 0;
        while (!report.failed() && (minutesGone() < minutes || number < LeastSteps)) {
            const Step &step = choose(board);
            number = report.step(QLatin1String(step.name));
            if (!(board.*step.take)() || !board.afterStep())
                break;
            if (number == WarmUpSteps && board.rest())
                atStart = footprintAtRest(board, descriptors);
            if (minutesGone() > nextMinute) {
                std::printf("%s\n", qPrintable(report.progress()));
                ++nextMinute;
            }
        }
    }
    SoakFootprint atEnd;
    if (!report.failed() && board.rest()) {
        atEnd = footprintAtRest(board, atStart.descriptors);
        insistOnFootprint(report, atStart, atEnd);
    }
    return report.finish(atStart, atEnd);
}

} // namespace

/// Runs in the sandbox: see scripts/soak, which checks the arguments, MINUTES and SEED.
int main(int argc, char *argv[])
{
    // A sandbox that ignores Ctrl-C, so as to outlive this program, hands that down.
    std::signal(SIGINT, SIG_DFL);
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    return run(arguments.value(1).toDouble(), arguments.value(2).toUInt());
}
