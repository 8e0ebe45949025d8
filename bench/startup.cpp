// SPDX-License-Identifier: MIT
#include "bench/startup.h"

#include "bench/contestants.h"
#include "bench/fail.h"

namespace bench {

namespace {

constexpr double NsPerMs = 1e6;

double registeredMs(sim::Board &board)
{
    std::int64_t registered = 0;
    const QObject scope;
    QObject::connect(&board.bluez, &sim::FakeBluez::called, &scope, [&](const sim::BluezCall &call) {
        if (call.member == QLatin1String("RegisterEndpoint"))
            registered = nowNs();
    });
    const auto requestsBefore = board.player.requests().size();
    Process daemon({daemonProgram(), "--stderr"}, {"DBUS_SYSTEM_BUS_ADDRESS=" + board.bus.address().toUtf8()});
    // The daemon notifies the player after it has registered the last endpoint.
    if (!sim::waitFor([&] { return registered != 0 && board.player.requests().size() > requestsBefore; }))
        fail(QStringLiteral("the daemon does not start"));
    const double ms = static_cast<double>(registered - daemon.startedNs()) / NsPerMs;
    daemon.signal(SIGTERM);
    daemon.wait();
    if (!sim::waitFor([&] { return board.bluez.endpoints().isEmpty(); }))
        fail(QStringLiteral("the daemon's endpoints are still registered"));
    return ms;
}

double versionMs()
{
    Process daemon({daemonProgram(), "--version"});
    daemon.wait();
    return static_cast<double>(nowNs() - daemon.startedNs()) / NsPerMs;
}

} // namespace

Starts measureStarts(int times)
{
    sim::Board board;
    registeredMs(board); // not counted, because it loads the files into the page cache
    Starts starts;
    for (int i = 0; i < times; ++i) {
        starts.registered.push_back(registeredMs(board));
        starts.version.push_back(versionMs());
    }
    return starts;
}

} // namespace bench
