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

constexpr int LookMs = 200;
// systemd waits 100 ms before it starts a service that crashed again. Here it is long enough for phones to give up.
constexpr int BluetoothdAwayMs = 3000;
// BlueZ reports a phone that hung up as much as 2.5 s later.
constexpr int PhoneGoneMs = 15'000;

class Speaker {
public:
    Speaker();
    /// The exit status.
    int run();

private:
    void startBluetoothd();
    void look();
    void saveWhatWasHeard();

    sim::ChildProcess bluetoothd_;
    sim::Daemon daemon_;
    sim::Player player_;
    QTimer timer_;
    int streams_ = 0;
};

Speaker::Speaker()
{
    QObject::connect(&daemon_, &sim::Daemon::logLine,
                     [](const QString &line) { say(QStringLiteral("kado-bt"), line); });
    QObject::connect(&player_, &sim::Player::requested, [](const sim::PlayerRequest &request) {
        say(QStringLiteral("player"), QStringLiteral("is told ") + request.target);
    });
    QObject::connect(&timer_, &QTimer::timeout, [this] { look(); });
    bluetoothd_.setStandardErrorFile(Share + QStringLiteral("/bluetoothd"), QIODevice::Append);
}

void Speaker::startBluetoothd()
{
    bluetoothd_.start(QStringLiteral("/usr/libexec/bluetooth/bluetoothd"),
                      {QStringLiteral("-n"), QStringLiteral("-d")});
}

void Speaker::saveWhatWasHeard()
{
    if (player_.heard().isEmpty())
        return;
    say(QStringLiteral("player"), QStringLiteral("has heard %1 bytes").arg(player_.heard().size()));
    saveHeard(player_.heard(), streams_++);
    player_.forgetHeard();
}

void Speaker::look()
{
    if (!player_.audioConnected()) {
        saveWhatWasHeard();
        player_.connectAudio();
    }
    if (QFile::remove(Share + QStringLiteral("/crash"))) {
        say(QStringLiteral("speaker"), QStringLiteral("kills bluetoothd"));
        bluetoothd_.kill();
        QTimer::singleShot(BluetoothdAwayMs, &bluetoothd_, [this] { startBluetoothd(); });
    }
}

int Speaker::run()
{
    if (!player_.serve())
        return EXIT_FAILURE;
    startBluetoothd();
    daemon_.start(QStringLiteral("unix:path=/run/dbus/system_bus_socket"),
                  {QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")});
    timer_.start(LookMs);

    const QString end = Share + QStringLiteral("/end");
    while (!QFile::exists(end) && daemon_.process().state() == QProcess::Running)
        sim::waitFor([] { return false; }, LookMs);

    const QString gone = QStringLiteral(
        "/BTPropertyChange?type=USB?adapter=true&connected=false&name=&streaming=false");
    const bool told = sim::waitFor([&] { return player_.targets().value(player_.targets().size() - 1) == gone; },
                                   PhoneGoneMs);
    const bool runs = daemon_.process().state() == QProcess::Running;
    if (!told)
        say(QStringLiteral("speaker"), QStringLiteral("FAILED: the player was not told that the phone has left"));
    if (!runs)
        say(QStringLiteral("speaker"), QStringLiteral("FAILED: kado-bt has ended"));
    daemon_.stop();
    saveWhatWasHeard();
    return told && runs ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int runSpeaker()
{
    return Speaker().run();
}

} // namespace realbluez
