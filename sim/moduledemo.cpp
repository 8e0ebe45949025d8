// SPDX-License-Identifier: MIT
#include "sim/moduledemo.h"

#include "sim/board.h"
#include "sim/module.h"
#include "sim/story.h"

#include <QFile>

#include <cstdio>

namespace sim {

namespace {

const QString PhoneName = QStringLiteral("Anna's phone");
constexpr double BytesPerSecond = 176'400; // 16-bit stereo at 44100 Hz

const QString SwitchFile = QStringLiteral("/sys/class/leds/bt_sw_i2s/brightness");

/// The board with its module, and the story that they tell.
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
    Story story_;
    int awaitedCommands_ = 0;
    double rate_ = 0; ///< bytes of silence a second
    double measuredSeconds_ = 0;
};

ModuleDemo::ModuleDemo(int silenceSeconds) : silenceSeconds_(silenceSeconds), story_(daemon_, player_)
{
    writeDeviceInfo("<?xml version=\"1.0\"?>\n<device>\n  <settings>\n    <bt>melody</bt>\n  </settings>\n</device>\n");
    writePlayerName("Kitchen\n");
    writeFile(SwitchFile, "0");
    player_.serve();
    player_.connectWhenTold(true);
    QObject::connect(&module_, &Module::spoke, &module_, [this](const Module::Spoken &spoken) {
        story_.say(spoken.byDaemon ? "-> line" : "<- line", QString::fromUtf8(spoken.line));
    });
}

int ModuleDemo::run()
{
    const bool all = correctSettings() && playThroughAPhone() && rename() && listenToSilence();
    if (all)
        story_.insistOnNoMoreRequests();
    daemon_.stop();
    return sumUp();
}

bool ModuleDemo::correctSettings()
{
    story_.say("board", QStringLiteral("kado-bt starts; every setting of the module is wrong"));
    daemon_.start(bus_.address(), {QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")});
    return awaitCommands({"get name", "set name=Kitchen BT", "get audio", "set audio=3", "get i2s", "set i2s=0202",
                          "get codec", "set codec=7 44100 1", "write", "reset", "get name", "get audio", "get i2s",
                          "get codec", "status"})
        && awaitStatus(false, false);
}

bool ModuleDemo::playThroughAPhone()
{
    story_.say("phone", PhoneName + QStringLiteral(" connects"));
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
        story_.say("phone", QString::fromLatin1(act.what));
        (module_.*act.act)();
        if (!awaitStatus(true, act.streaming))
            return false;
    }
    story_.say("phone", QStringLiteral("disconnects"));
    module_.phoneDisconnects();
    return awaitCommands({"DISCOVERABLE ON"}) && awaitStatus(false, false);
}

bool ModuleDemo::rename()
{
    story_.say("board", QStringLiteral("the speaker is renamed to Bath"));
    writePlayerName("Bath\n");
    // Truncating and writing a file are two changes of it: the name may be asked for more than once.
    return story_.insist(
        waitFor([this] { return module_.settings.name == "Bath BT" && module_.commands().constLast() == "status"; }),
        QStringLiteral("the module was not renamed"));
}

bool ModuleDemo::listenToSilence()
{
    if (!awaitStatus(false, false)) // the module restarted
        return false;
    Control control(bus_.address());
    if (!story_.selectBluetooth(control, 44100, PhoneName)
        || !story_.insist(waitFor([this] { return !player_.heard().isEmpty(); }),
                          QStringLiteral("the player got no silence"))
        || !awaitSwitch("1"))
        return false;

    story_.say("player", QStringLiteral("listens to silence for %1 s").arg(silenceSeconds_));
    const qint64 before = player_.heard().size();
    QElapsedTimer clock;
    clock.start();
    const qint64 wanted = before + qRound64(silenceSeconds_ * BytesPerSecond);
    if (!story_.insist(waitFor([&] { return player_.heard().size() >= wanted; }, silenceSeconds_ * 1000 + 5000),
                       QStringLiteral("the silence ended early")))
        return false;
    measuredSeconds_ = static_cast<double>(clock.nsecsElapsed()) * 1e-9;
    rate_ = static_cast<double>(player_.heard().size() - before) / measuredSeconds_;
    const bool silent = player_.heard().count('\0') == player_.heard().size();
    player_.hangUpAudio();
    return story_.insist(silent, QStringLiteral("the silence was not silent")) && awaitSwitch("0");
}

bool ModuleDemo::awaitCommands(const QList<QByteArray> &expected)
{
    const int from = awaitedCommands_;
    awaitedCommands_ += static_cast<int>(expected.size());
    return story_.insist(waitFor([&] { return module_.commands().size() >= awaitedCommands_; })
                             && module_.commands(from).mid(0, expected.size()) == expected,
                         QStringLiteral("the module was not told: ") + expected.join(", "));
}

bool ModuleDemo::awaitStatus(bool connected, bool streaming)
{
    return story_.awaitStatus("CSR8675", connected, connected ? PhoneName : QString(), streaming);
}

bool ModuleDemo::awaitSwitch(const QByteArray &state)
{
    const auto isSet = [&] {
        QFile file(SwitchFile);
        return file.open(QIODevice::ReadOnly) && file.readAll() == state;
    };
    if (!story_.insist(waitFor(isSet), QStringLiteral("the I2S switch did not become ") + state))
        return false;
    story_.say("switch", QString::fromLatin1(state));
    return true;
}

int ModuleDemo::sumUp()
{
    std::printf("\nThe serial dialogue:\n");
    for (const Module::Spoken &spoken : module_.dialogue())
        std::printf("    %8.3f  %s %s\n", static_cast<double>(spoken.ms) / 1000,
                    spoken.byDaemon ? "kado-bt" : " module", spoken.line.constData());
    story_.listRequests();
    std::printf("Silence:\n    %.0f bytes a second over %.2f s, %+.3f %% off real time\n", rate_, measuredSeconds_,
                (rate_ / BytesPerSecond - 1) * 100);
    return story_.end();
}

} // namespace

int runModuleDemo(int silenceSeconds)
{
    return ModuleDemo(silenceSeconds).run();
}

} // namespace sim
