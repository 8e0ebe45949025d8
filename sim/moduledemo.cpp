// SPDX-License-Identifier: MIT
#include "sim/moduledemo.h"

#include "sim/board.h"
#include "sim/demoreport.h"
#include "sim/module.h"

#include <QFile>

#include <cstdio>

namespace sim {

namespace {

const QString PhoneName = QStringLiteral("Anna's phone");
constexpr double BytesPerSecond = 176'400; // 16-bit stereo at 44100 Hz

const QString SwitchFile = QStringLiteral("/sys/class/leds/bt_sw_i2s/brightness");

/// The demo on a board with a module. The first failed check ends it.
class ModuleDemo {
public:
    explicit ModuleDemo(int silenceSeconds);

    int run();

private:
    bool correctSettings();
    bool playThroughAPhone();
    bool rename();
    bool listenToSilence();
    int sumUp();

    bool awaitCommands(const QList<QByteArray> &expected);
    bool awaitStatus(bool connected, bool streaming);
    bool awaitSwitch(const QByteArray &state);

    int silenceSeconds_;
    Bus bus_;
    Player player_;
    Module module_;
    Daemon daemon_;
    DemoReport report_;
    int awaitedCommands_ = 0;
    double rate_ = 0; ///< of the silence, in bytes per second
    double measuredSeconds_ = 0;
};

ModuleDemo::ModuleDemo(int silenceSeconds) : silenceSeconds_(silenceSeconds), report_(daemon_, player_)
{
    writeDeviceInfo("<?xml version=\"1.0\"?>\n<device>\n  <settings>\n    <bt>melody</bt>\n  </settings>\n</device>\n");
    writePlayerName("Kitchen\n");
    writeFile(SwitchFile, "0");
    player_.serve();
    player_.connectOnPlay(true);
    QObject::connect(&module_, &Module::lineTransferred, &module_, [this](const Module::DialogueLine &line) {
        report_.log(line.byDaemon ? "-> line" : "<- line", QString::fromUtf8(line.line));
    });
}

int ModuleDemo::run()
{
    const bool all = correctSettings() && playThroughAPhone() && rename() && listenToSilence();
    if (all)
        report_.expectNoMoreRequests();
    daemon_.stop();
    return sumUp();
}

bool ModuleDemo::correctSettings()
{
    report_.log("board", QStringLiteral("kado-bt starts; every setting of the module is wrong"));
    daemon_.start(bus_.address(), {QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")});
    return awaitCommands({"get name", "set name=Kitchen BT", "get audio", "set audio=3", "get i2s", "set i2s=0202",
                          "get codec", "set codec=7 44100 1", "write", "reset", "get name", "get audio", "get i2s",
                          "get codec", "status"})
        && awaitStatus(false, false);
}

bool ModuleDemo::playThroughAPhone()
{
    report_.log("phone", PhoneName + QStringLiteral(" connects"));
    module_.phoneConnects("0123456789AB", PhoneName.toUtf8());
    if (!awaitCommands({"status", "name 0123456789AB"}) || !awaitStatus(true, false))
        return false;
    const struct {
        const char *what;
        void (Module::*act)();
        bool streaming;
    } acts[] = {
        {"plays", &Module::phonePlays, true},
        {"pauses", &Module::phonePauses, false},
        {"plays", &Module::phonePlays, true},
        {"stops", &Module::phoneStops, false},
    };
    for (const auto &act : acts) {
        report_.log("phone", QString::fromLatin1(act.what));
        (module_.*act.act)();
        if (!awaitStatus(true, act.streaming))
            return false;
    }
    report_.log("phone", QStringLiteral("disconnects"));
    module_.phoneDisconnects();
    return awaitCommands({"DISCOVERABLE ON"}) && awaitStatus(false, false);
}

bool ModuleDemo::rename()
{
    report_.log("board", QStringLiteral("the speaker is renamed to Bath"));
    writePlayerName("Bath\n");
    // Do not count the commands: truncating and writing the file are two changes, so the daemon may check the name
    // twice.
    return report_.expect(
        waitFor([this] { return module_.settings.name == "Bath BT" && module_.commands().constLast() == "status"; }),
        QStringLiteral("the module was not renamed"));
}

bool ModuleDemo::listenToSilence()
{
    if (!awaitStatus(false, false)) // the module restarted
        return false;
    Control control(bus_.address());
    if (!report_.selectBluetooth(control, 44100, PhoneName)
        || !report_.expect(waitFor([this] { return !player_.heard().isEmpty(); }),
                           QStringLiteral("the player received no silence"))
        || !awaitSwitch("1"))
        return false;

    report_.log("player", QStringLiteral("listens to silence for %1 s").arg(silenceSeconds_));
    const qint64 before = player_.heard().size();
    QElapsedTimer clock;
    clock.start();
    const qint64 wanted = before + qRound64(silenceSeconds_ * BytesPerSecond);
    if (!report_.expect(waitFor([&] { return player_.heard().size() >= wanted; }, silenceSeconds_ * 1000 + 5000),
                        QStringLiteral("the silence ended early")))
        return false;
    measuredSeconds_ = static_cast<double>(clock.nsecsElapsed()) * 1e-9;
    rate_ = static_cast<double>(player_.heard().size() - before) / measuredSeconds_;
    const bool silent = player_.heard().count('\0') == player_.heard().size();
    player_.disconnectAudio();
    return report_.expect(silent, QStringLiteral("the silence was not silent")) && awaitSwitch("0");
}

bool ModuleDemo::awaitCommands(const QList<QByteArray> &expected)
{
    const int from = awaitedCommands_;
    awaitedCommands_ += static_cast<int>(expected.size());
    return report_.expect(waitFor([&] { return module_.commands().size() >= awaitedCommands_; })
                              && module_.commands(from).mid(0, expected.size()) == expected,
                          QStringLiteral("the module was not told: ") + expected.join(", "));
}

bool ModuleDemo::awaitStatus(bool connected, bool streaming)
{
    return report_.awaitStatus("CSR8675", connected, connected ? PhoneName : QString(), streaming);
}

bool ModuleDemo::awaitSwitch(const QByteArray &state)
{
    const auto isSet = [&] {
        QFile file(SwitchFile);
        return file.open(QIODevice::ReadOnly) && file.readAll() == state;
    };
    if (!report_.expect(waitFor(isSet), QStringLiteral("the I2S switch did not become ") + state))
        return false;
    report_.log("switch", QString::fromLatin1(state));
    return true;
}

int ModuleDemo::sumUp()
{
    std::printf("\nThe serial dialogue:\n");
    for (const Module::DialogueLine &line : module_.dialogue())
        std::printf("    %8.3f  %s %s\n", static_cast<double>(line.ms) / 1000, line.byDaemon ? "kado-bt" : " module",
                    line.line.constData());
    report_.listRequests();
    std::printf("Silence:\n    %.0f bytes a second over %.2f s, %+.3f %% off real time\n", rate_, measuredSeconds_,
                (rate_ / BytesPerSecond - 1) * 100);
    return report_.finish();
}

} // namespace

int runModuleDemo(int silenceSeconds)
{
    return ModuleDemo(silenceSeconds).run();
}

} // namespace sim
