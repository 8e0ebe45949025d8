// SPDX-License-Identifier: MIT
#include "soak/soakboard.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <csignal>
#include <cstdio>
#include <vector>

namespace {

using namespace sim;
using Soak = SoakBoard;

constexpr int Streams = Soak::Streaming | Soak::Listening;
constexpr int There = Soak::Connected | Soak::Configured | Streams;
constexpr int States = Soak::Idle | There;

/// What may be done in which states, and how often compared with the others.
constexpr struct Step {
    const char *name;
    int states;
    int weight;
    void (Soak::*take)();
} Steps[] = {
    {"connect", Soak::Idle, 40, &Soak::connectPhone},
    {"configure", Soak::Connected, 40, &Soak::configure},
    {"start", Soak::Configured, 40, &Soak::start},
    {"play", Streams, 50, &Soak::play},
    {"suspend", Streams, 12, &Soak::suspend},
    {"clear", Soak::Configured, 8, &Soak::clear},
    {"hang up", There, 6, &Soak::hangUp},
    {"swap clients", Soak::Listening, 12, &Soak::swapClients},
    {"client leaves", Soak::Listening, 6, &Soak::clientLeaves},
    {"slow client", Soak::Listening, 14, &Soak::slowClient},
    {"clients come and go", States, 2, &Soak::clientsComeAndGo},
    {"select Bluetooth", States, 4, &Soak::selectBluetooth},
    {"second phone", There, 3, &Soak::secondPhone},
    {"remove adapter", States, 2, &Soak::removeAdapter},
    {"restart BlueZ", States, 3, &Soak::restartBluez},
    {"slow name", Soak::Idle, 8, &Soak::slowName},
    {"slow acquire", Soak::Configured, 8, &Soak::slowAcquire},
    {"slow disconnect", There, 3, &Soak::slowDisconnect},
    {"slow rename", States, 2, &Soak::slowRename},
    {"slow set-up", States, 2, &Soak::slowSetUp},
    {"player fault", States, 1, &Soak::playerFault},
};

#ifdef KADO_SANITIZED // which keeps what is freed, and tells of leaks by itself
constexpr int SpareKib = 1'000'000;
#else
// A few pages more or less lie between two looks at the heap. A leak of 73 bytes a stream would pass this.
constexpr int SpareKib = 64;
#endif

constexpr int MsAMinute = 60'000;

// Every kind of step has happened by then.
constexpr int LeastSteps = 800;

const Step &choose(int state, SoakRandom &random)
{
    std::vector<const Step *> possible;
    for (const Step &step : Steps) {
        if ((step.states & state) != 0)
            possible.insert(possible.end(), static_cast<size_t>(step.weight), &step);
    }
    return *random.oneOf(possible);
}

/// Whole streams, the same four again and again.
void playStreams(int count, SoakBoard &soak, SoakRandom &random)
{
    for (int i = 0; i < count; ++i) {
        if (i % 4 == 0)
            random = SoakRandom(1);
        soak.wholeStream();
    }
}

/// Runs a board at random for `minutes` (longer where that is less than 800 steps), the same story for the same seed,
/// as fast as the daemon goes: streams, clients and phones that come and go, and faults in between; everything that is
/// heard and told is compared. Then a thousand streams have to leave nothing. Ends with a table, or at the first fault.
void run(double minutes, quint32 seed)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // a person follows it, also through a pipe
    std::printf("Soak of %g min, seed %u\n", minutes, seed);
    Board board;
    SoakReport report(board.daemon, seed);
    SoakRandom random(seed);
    SoakBoard soak(board, report, random);
    const int descriptors = settledDescriptors(board.daemon);
    QElapsedTimer clock;
    clock.start();
    for (int step = 0; static_cast<double>(clock.elapsed()) < minutes * MsAMinute || step < LeastSteps; ++step) {
        const Step &next = choose(soak.state(), random);
        report.step(next.name);
        (soak.*next.take)();
        board.bluez.forgetCalls();
        board.daemon.forgetLog();
    }
    report.step("a thousand streams");
    playStreams(100, soak, random);
    const int dirtyKib = board.daemon.privateDirtyKib();
    playStreams(900, soak, random);
    report.insistOnNoMore("open descriptors", descriptors, settledDescriptors(board.daemon), SparePlayerSockets);
    report.insistOnNoMore("KiB of private dirty memory", dirtyKib, board.daemon.privateDirtyKib(), SpareKib);
    report.finish();
}

} // namespace

/// Runs in the sandbox: see scripts/soak, which checks the arguments, MINUTES and SEED.
int main(int argc, char *argv[])
{
    // A sandbox that ignores Ctrl-C, so as to outlive this program, hands that down.
    std::signal(SIGINT, SIG_DFL);
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    run(arguments.value(1).toDouble(), arguments.value(2).toUInt());
    return 0;
}
