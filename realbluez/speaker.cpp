// SPDX-License-Identifier: MIT
#include "realbluez/speaker.h"

#include "realbluez/log.h"
#include "realbluez/sound.h"
#include "sim/daemon.h"
#include "sim/player.h"
#include "sim/waiting.h"

#include <QFile>
#include <QTimer>

#include <cstdlib>

namespace realbluez {

namespace {

constexpr int PollMs = 200;
// Longer than systemd's 100 ms before the restart of a crashed service, so that the phones lose their connections.
constexpr int BluetoothdRestartMs = 3000;
// BlueZ reports a disconnected phone up to 2.5 s later.
constexpr int DisconnectTimeoutMs = 15'000;

class Speaker {
public:
    Speaker();
    /// Returns the exit status.
    int run();

private:
    void startBluetoothd();
    void poll();
    void saveStream();

    sim::ChildProcess bluetoothd_;
    sim::Daemon daemon_;
    sim::Player player_;
    QTimer timer_;
    int streams_ = 0;
};

Speaker::Speaker()
{
    QObject::connect(&daemon_, &sim::Daemon::logLine,
                     [](const QString &line) { logLine(QStringLiteral("kado-bt"), line); });
    QObject::connect(&player_, &sim::Player::requested, [](const sim::PlayerRequest &request) {
        logLine(QStringLiteral("player"), QStringLiteral("is told ") + request.target);
    });
    QObject::connect(&timer_, &QTimer::timeout, [this] { poll(); });
    bluetoothd_.setStandardErrorFile(Share + QStringLiteral("/bluetoothd"), QIODevice::Append);
}

void Speaker::startBluetoothd()
{
    bluetoothd_.start(QStringLiteral("/usr/libexec/bluetooth/bluetoothd"),
                      {QStringLiteral("-n"), QStringLiteral("-d")});
}

void Speaker::saveStream()
{
    if (player_.heard().isEmpty())
        return;
    logLine(QStringLiteral("player"), QStringLiteral("has heard %1 bytes").arg(player_.heard().size()));
    saveHeard(player_.heard(), streams_++);
    player_.clearHeard();
}

void Speaker::poll()
{
    if (!player_.audioConnected()) {
        saveStream();
        player_.connectAudio();
    }
    if (QFile::remove(Share + QStringLiteral("/crash"))) {
        logLine(QStringLiteral("speaker"), QStringLiteral("kills bluetoothd"));
        bluetoothd_.kill();
        QTimer::singleShot(BluetoothdRestartMs, &bluetoothd_, [this] { startBluetoothd(); });
    }
}

int Speaker::run()
{
    if (!player_.serve())
        return EXIT_FAILURE;
    startBluetoothd();
    daemon_.start(QStringLiteral("unix:path=/run/dbus/system_bus_socket"),
                  {QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")});
    timer_.start(PollMs);

    const QString end = Share + QStringLiteral("/end");
    while (!QFile::exists(end) && daemon_.process().state() == QProcess::Running)
        sim::waitFor([] { return false; }, PollMs);

    const QString gone = QStringLiteral(
        "/BTPropertyChange?type=USB?adapter=true&connected=false&name=&streaming=false");
    const bool told = sim::waitFor([&] { return player_.targets().value(player_.targets().size() - 1) == gone; },
                                   DisconnectTimeoutMs);
    const bool runs = daemon_.process().state() == QProcess::Running;
    if (!told)
        logLine(QStringLiteral("speaker"),
                QStringLiteral("FAILED: the player was not told that the phone disconnected"));
    if (!runs)
        logLine(QStringLiteral("speaker"), QStringLiteral("FAILED: kado-bt has ended"));
    daemon_.stop();
    saveStream();
    return told && runs ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int runSpeaker()
{
    return Speaker().run();
}

} // namespace realbluez
