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
constexpr int AnyPhone = Soak::Connected | Soak::Configured | Streams;
constexpr int States = Soak::Idle | AnyPhone;

/// The steps of a soak.
constexpr struct Step {
    const char *name;
    int states; ///< those in which the step is possible
    int weight; ///< relative frequency
    void (Soak::*take)();
} Steps[] = {
    {"connect", Soak::Idle, 40, &Soak::connectPhone},
    {"configure", Soak::Connected, 40, &Soak::configure},
    {"start", Soak::Configured, 40, &Soak::start},
    {"play", Streams, 50, &Soak::play},
    {"suspend", Streams, 12, &Soak::suspend},
    {"clear", Soak::Configured, 8, &Soak::clear},
    {"hang up", AnyPhone, 6, &Soak::hangUp},
    {"swap clients", Soak::Listening, 12, &Soak::swapClients},
    {"client disconnects", Soak::Listening, 6, &Soak::disconnectClient},
    {"slow client", Soak::Listening, 14, &Soak::slowClient},
    {"brief clients", States, 2, &Soak::connectBriefly},
    {"select Bluetooth", States, 4, &Soak::selectBluetooth},
    {"second phone", AnyPhone, 3, &Soak::secondPhone},
    {"remove adapter", States, 2, &Soak::removeAdapter},
    {"restart BlueZ", States, 3, &Soak::restartBluez},
    {"slow name", Soak::Idle, 8, &Soak::slowName},
    {"slow acquire", Soak::Configured, 8, &Soak::slowAcquire},
    {"slow disconnect", AnyPhone, 3, &Soak::slowDisconnect},
    {"slow rename", States, 2, &Soak::slowRename},
    {"slow set-up", States, 2, &Soak::slowSetUp},
    {"player fault", States, 1, &Soak::playerFault},
};

#ifdef KADO_SANITIZED // AddressSanitizer keeps freed memory, and reports leaks itself
constexpr int SpareKib = 1'000'000;
#else
// The heap varies by a few pages. This limit finds a leak of 73 bytes per stream.
constexpr int SpareKib = 64;
#endif

constexpr int MsPerMinute = 60'000;

// Enough for every kind of step to occur.
constexpr int MinSteps = 800;

const Step &choose(int state, SoakRandom &random)
{
    std::vector<const Step *> possible;
    for (const Step &step : Steps) {
        if ((step.states & state) != 0)
            possible.insert(possible.end(), static_cast<size_t>(step.weight), &step);
    }
    return *random.oneOf(possible);
}

/// Plays whole streams. Every four streams are the same as the four before.
void playStreams(int count, SoakBoard &soak, SoakRandom &random)
{
    for (int i = 0; i < count; ++i) {
        if (i % 4 == 0)
            random = SoakRandom(1);
        soak.wholeStream();
    }
}

/// Takes random steps on a board as fast as the daemon allows, for `minutes` and at least 800 steps. The same seed
/// gives the same steps: streams, clients and phones that connect and disconnect, faults. Each step checks all audio
/// and all requests to the player. Then plays a thousand streams and checks that the daemon has not leaked descriptors
/// or memory. Ends with a table, or at the first failure.
void run(double minutes, quint32 seed)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // show each line at once, even through a pipe
    std::printf("Soak of %g min, seed %u\n", minutes, seed);
    Board board;
    SoakReport report(board.daemon, seed);
    SoakRandom random(seed);
    SoakBoard soak(board, report, random);
    const int descriptors = settledDescriptors(board.daemon);
    QElapsedTimer clock;
    clock.start();
    for (int step = 0; static_cast<double>(clock.elapsed()) < minutes * MsPerMinute || step < MinSteps; ++step) {
        const Step &next = choose(soak.state(), random);
        report.step(next.name);
        (soak.*next.take)();
        board.bluez.clearCalls();
        board.daemon.clearLog();
    }
    report.step("a thousand streams");
    playStreams(100, soak, random);
    const int dirtyKib = board.daemon.privateDirtyKib();
    playStreams(900, soak, random);
    report.expectNoGrowth("open descriptors", descriptors, settledDescriptors(board.daemon), SparePlayerSockets);
    report.expectNoGrowth("KiB of private dirty memory", dirtyKib, board.daemon.privateDirtyKib(), SpareKib);
    report.finish();
}

} // namespace

/// Runs only in scripts/sandbox. scripts/soak checks the arguments MINUTES and SEED.
int main(int argc, char *argv[])
{
    // Handle Ctrl-C even when the starting shell ignores SIGINT.
    std::signal(SIGINT, SIG_DFL);
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    run(arguments.value(1).toDouble(), arguments.value(2).toUInt());
    return 0;
}
