// The shipped binary with an external module on a real pseudo terminal, an I2S switch and a name file.

#include "boardtest.h"
#include "sim/module.h"

#include <QDir>
#include <QFile>
#include <QLocalSocket>

#include <sys/ioctl.h>
#include <termios.h>

using namespace boardtest;

Q_DECLARE_METATYPE(sim::Module::Manner)

namespace {

const QStringList Traced{QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")};
constexpr int SilenceBytes = 44100;
const QString Switch = QStringLiteral("/sys/class/leds/bt_sw_i2s/brightness");

QByteArray switchState()
{
    QFile file(Switch);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("none");
}

QString moduleNotification(bool connected, const char *name, bool streaming)
{
    return notification(true, connected, name, streaming).replace(QStringLiteral("USB"), QStringLiteral("CSR8675"));
}

/// What the daemon says to a module whose settings are right.
const QList<QByteArray> Check{"get name", "get audio", "get i2s", "get codec", "status"};

sim::Module::Settings rightSettings()
{
    return {"Kitchen BT", "3", "0202", "7 44100 1"};
}

/// A board whose device file selects the module; BlueZ is left out.
struct ModuleBoard {
    explicit ModuleBoard(const sim::Module::Settings &settings = rightSettings(), const QStringList &arguments = Traced)
        : arguments_(arguments)
    {
        sim::writeDeviceInfo("<kado>\n<settings>\n<bt>melody</bt>\n</settings>\n</kado>\n");
        sim::writePlayerName("Kitchen\n");
        QFile::remove(Switch);
        module.settings = settings;
        served = player.serve();
    }

    bool start()
    {
        daemon.start(bus.address(), arguments_);
        return served;
    }

    /// Starts the daemon and waits until it has found the settings right and the module has told its state.
    bool startChecked()
    {
        return start()
            && sim::waitFor([&] { return module.commands() == Check && !module.dialogue().last().byDaemon; });
    }

    bool logs(const char *line)
    {
        return sim::waitFor([&] { return daemon.logged(QString::fromUtf8(line)); });
    }

    sim::Bus bus;
    sim::Player player;
    sim::Module module;
    sim::Daemon daemon;
    bool served = false;

private:
    QStringList arguments_;
};

} // namespace

class ModuleTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void wrongSettingsAreCorrectedAndSavedOnce();
    void moduleMayTalkAsItLikes_data();
    void moduleMayTalkAsItLikes();
    void phoneComesPlaysAndLeaves();
    void speakerIsRenamedWhileRunning();
    void nameFileMayComeLater();
    void silenceThrowsTheSwitch();
    void silenceComesInRealTime();
    void clientsMayWrite();
    void boardWithoutSwitch();
    void controlInterface();
    void everySettingOfTheLineIsOurs_data();
    void everySettingOfTheLineIsOurs();
    void noSerialLineEndsTheDaemon_data();
    void noSerialLineEndsTheDaemon();
    void lineThatIsUnplugged();
    void floodOnTheLine();
};

void ModuleTest::wrongSettingsAreCorrectedAndSavedOnce()
{
    ModuleBoard board(sim::Module::Settings{});
    QVERIFY(board.start());
    const QList<QByteArray> expected = QList<QByteArray>{"get name",  "set name=Kitchen BT",
                                                         "get audio", "set audio=3",
                                                         "get i2s",   "set i2s=0202",
                                                         "get codec", "set codec=7 44100 1",
                                                         "write",     "reset"}
        + Check;
    WAIT_UNTIL(board.module.commands().size() >= expected.size());
    QCOMPARE(board.module.commands(), expected);
    for (const char *line : {"BT name mismatch - fixing", "BT audio mode mismatch - fixing",
                             "BT I2S mode mismatch - fixing", "BT codec mode mismatch - fixing", "\"Kitchen BT\""})
        QVERIFY2(board.logs(line), line);
}

void ModuleTest::moduleMayTalkAsItLikes_data()
{
    QTest::addColumn<sim::Module::Manner>("manner");
    QTest::newRow("CR") << sim::Module::Manner{"\r", 0, false, 0, false};
    QTest::newRow("LF") << sim::Module::Manner{"\n", 0, false, 0, false};
    QTest::newRow("byte by byte") << sim::Module::Manner{"\r\n", 1, false, 0, false};
    QTest::newRow("junk between the lines") << sim::Module::Manner{"\r\n", 0, true, 0, false};
    QTest::newRow("slowly") << sim::Module::Manner{"\r\n", 3, false, 50, false};
}

void ModuleTest::moduleMayTalkAsItLikes()
{
    QFETCH(sim::Module::Manner, manner);
    ModuleBoard board({"Kitchen BT", "3", "0101", "7 44100 1"});
    board.module.manner = manner;
    QVERIFY(board.start());
    const QList<QByteArray> expected = QList<QByteArray>{"get name",  "get audio", "get i2s", "set i2s=0202",
                                                         "get codec", "write",     "reset"}
        + Check;
    WAIT_UNTIL(board.module.commands().size() >= expected.size());
    QCOMPARE(board.module.commands(), expected);
}

void ModuleTest::phoneComesPlaysAndLeaves()
{
    ModuleBoard board;
    QVERIFY(board.startChecked());
    // The module's first status is a change, too.
    WAIT_UNTIL(board.player.targets() == QStringList(moduleNotification(false, "", false)));

    board.module.phoneConnects("0123456789AB", "Anna's phone");
    board.module.phonePlays(); // one notification for the burst, and with the name that had to be asked for
    WAIT_UNTIL(board.player.targets().size() == 2);
    QCOMPARE(board.player.targets().last(), moduleNotification(true, "Anna's%20phone", true));
    QCOMPARE(board.module.commands(static_cast<int>(Check.size())), QList<QByteArray>({"status", "name 0123456789AB"}));

    board.module.phonePauses();
    WAIT_UNTIL(board.player.targets().last() == moduleNotification(true, "Anna's%20phone", false));
    board.module.phoneDisconnects();
    WAIT_UNTIL(board.player.targets().last() == moduleNotification(false, "", false));
    QCOMPARE(board.module.commands().last(), QByteArray("DISCOVERABLE ON"));
    QCOMPARE(board.player.targets().size(), 4);
    for (const char *line : {"Connected", "Streaming", "Stream Paused", "Disconnected", "\"Anna's phone\""})
        QVERIFY2(board.logs(line), line);
}

void ModuleTest::speakerIsRenamedWhileRunning()
{
    ModuleBoard board;
    QVERIFY(board.startChecked());
    const auto renamed = [&](const char *name) {
        return sim::waitFor(
            [&] { return board.module.settings.name == name && board.module.commands().last() == "status"; });
    };
    sim::writePlayerName("Bath\n");
    QVERIFY(renamed("Bath BT"));
    for (const char *name : {"Hall", "Attic"}) { // replaced, as editors and careful writers do
        QFile fresh(QStringLiteral("/var/data/fresh"));
        QVERIFY(fresh.open(QIODevice::WriteOnly));
        fresh.write(name);
        fresh.close();
        QCOMPARE(::rename("/var/data/fresh", "/var/data/player_name"), 0);
        QVERIFY2(renamed(qPrintable(QString::fromLatin1(name) + QStringLiteral(" BT"))), name);
    }
    sim::removePlayerName();
    sim::writePlayerName("Cellar\n");
    QVERIFY(renamed("Cellar BT"));
}

void ModuleTest::nameFileMayComeLater()
{
    ModuleBoard board;
    sim::removePlayerName();
    QVERIFY(QDir().rmdir(QStringLiteral("/var/data")));
    QVERIFY(board.start());
    WAIT_UNTIL(!board.module.commands().isEmpty());
    QVERIFY(QDir().mkpath(QStringLiteral("/var/data")));
    sim::writePlayerName("Bath\n");
    WAIT_UNTIL(board.module.settings.name == "Bath BT" && board.module.commands().last() == "status");
}

void ModuleTest::silenceThrowsTheSwitch()
{
    ModuleBoard board;
    QVERIFY(board.startChecked());
    QCOMPARE(switchState(), QByteArray("none")); // untouched until somebody listens
    QVERIFY(board.player.connectAudio());
    WAIT_UNTIL(switchState() == "1");
    QVERIFY(board.logs("New Blank audio out socket connection accepted"));
    WAIT_UNTIL(board.player.heard().size() >= 2 * SilenceBytes);
    QCOMPARE(board.player.heard().count('\0'), board.player.heard().size());

    sim::Player newer;
    QVERIFY(newer.connectAudio());
    WAIT_UNTIL(!board.player.audioConnected());
    QCOMPARE(switchState(), QByteArray("1"));
    WAIT_UNTIL(newer.heard().size() >= SilenceBytes);
    newer.hangUpAudio();
    WAIT_UNTIL(switchState() == "0");
    WAIT_UNTIL(board.daemon.logTexts().count(QStringLiteral("csr8675Manager::DeleteBlankWriteSocket()")) == 2);
}

void ModuleTest::silenceComesInRealTime()
{
    ModuleBoard board;
    QVERIFY(board.startChecked());
    QVERIFY(board.player.connectAudio());
    WAIT_UNTIL(!board.player.heard().isEmpty());
    QElapsedTimer clock;
    clock.start();
    constexpr int Ticks = 12;
    WAIT_UNTIL(board.player.heard().size() == (1 + Ticks) * SilenceBytes);
    const double seconds = static_cast<double>(clock.nsecsElapsed()) * 1e-9;
    QVERIFY2(qAbs(seconds - Ticks * 0.25) < 0.15, qPrintable(QString::number(seconds)));
}

void ModuleTest::clientsMayWrite()
{
    ModuleBoard board(rightSettings(), {QStringLiteral("--stderr")});
    QVERIFY(board.startChecked());
    [[maybe_unused]] const int before = board.daemon.residentKib();
    QLocalSocket client;
    client.connectToServer(QStringLiteral("bluetooth"));
    client.write(QByteArray(16 * 1024 * 1024, 'x')); // many times what the kernel keeps
    WAIT_UNTIL(client.bytesToWrite() == 0);
    client.write("x");
    WAIT_UNTIL(client.bytesToWrite() == 0 && client.bytesAvailable() >= 2 * SilenceBytes);
    QCOMPARE(switchState(), QByteArray("1"));
#ifndef KADO_SANITIZED // which keeps what is freed
    QVERIFY(board.daemon.residentKib() - before < 1024);
#endif
}

void ModuleTest::boardWithoutSwitch()
{
    ModuleBoard board;
    QVERIFY(QDir(QStringLiteral("/sys/class/leds/bt_sw_i2s")).removeRecursively());
    QVERIFY(board.startChecked());
    QVERIFY(board.player.connectAudio());
    QVERIFY(board.logs("Warning: Could not open BT I2S Switch"));
    WAIT_UNTIL(board.player.heard().size() >= SilenceBytes);
    QVERIFY(QDir().mkpath(QStringLiteral("/sys/class/leds/bt_sw_i2s")));
}

void ModuleTest::controlInterface()
{
    ModuleBoard board;
    QVERIFY(board.startChecked());
    sim::Control control(board.bus.address());
    QCOMPARE(control.property(QStringLiteral("AdapterPresent")), QVariant(true));
    QCOMPARE(control.property(QStringLiteral("Connected")), QVariant(false));
    for (const char *method : {"ResetAlias", "SelectBluetooth"})
        QCOMPARE(control.call(QLatin1String(method)).type(), QDBusMessage::ReplyMessage);
    const QString play = QStringLiteral("/Play?url=Capture:bluez:bluetooth:pcm/44100/16/2&name=");
    WAIT_UNTIL(board.player.targets().contains(play));
    QVERIFY(board.logs(
        "SelectBluetooth(): \"http://127.0.0.1:11000/Play?url=Capture:bluez:bluetooth:pcm/44100/16/2&name=\""));
    QCOMPARE(control.setProperty(QStringLiteral("Connected"), false).type(), QDBusMessage::ReplyMessage);

    board.module.phoneConnects("0123456789AB", "Anna");
    board.module.phonePlays();
    WAIT_UNTIL(control.property(QStringLiteral("Name")) == QVariant(QStringLiteral("Anna")));
    QCOMPARE(control.property(QStringLiteral("Connected")), QVariant(true));
    QCOMPARE(control.property(QStringLiteral("Streaming")), QVariant(true));
    control.call(QStringLiteral("SelectBluetooth"));
    WAIT_UNTIL(board.player.targets().contains(play + QStringLiteral("Anna")));
    QCOMPARE(board.module.commands(), Check + QList<QByteArray>({"status", "name 0123456789AB"}));
}

void ModuleTest::everySettingOfTheLineIsOurs_data()
{
    QTest::addColumn<bool>("allSet");
    QTest::newRow("left with nothing set") << false;
    QTest::newRow("left with everything set") << true; // XON and XOFF, parity, echo, signals, ...
}

void ModuleTest::everySettingOfTheLineIsOurs()
{
    QFETCH(bool, allSet);
    ModuleBoard board;
    termios left{};
    if (allSet) {
        for (tcflag_t *flags : {&left.c_iflag, &left.c_oflag, &left.c_lflag})
            *flags = ~tcflag_t{0};
        left.c_cflag = CSTOPB | PARENB | PARODD | HUPCL | CRTSCTS;
        left.c_cc[VTIME] = 1;
    }
    ::cfsetspeed(&left, B115200);
    QCOMPARE(::tcsetattr(board.module.line(), TCSANOW, &left), 0);
    QVERIFY(board.startChecked());

    termios line{};
    QCOMPARE(::tcgetattr(board.module.line(), &line), 0);
    QCOMPARE(::cfgetispeed(&line), speed_t{B9600});
    QCOMPARE(::cfgetospeed(&line), speed_t{B9600});
    // A break and a byte that is framed wrongly, as a module sends them at power-on, are no input.
    QCOMPARE(line.c_iflag, tcflag_t{IGNBRK | IGNPAR});
    QCOMPARE(line.c_oflag, tcflag_t{0});
    QCOMPARE(line.c_lflag, tcflag_t{0});
    QCOMPARE(line.c_cflag, tcflag_t{B9600 | CS8 | CREAD | CLOCAL});
    QCOMPARE(int{line.c_cc[VMIN]}, 1);
    QCOMPARE(int{line.c_cc[VTIME]}, 0);
    int exclusive = 0;
    QCOMPARE(::ioctl(board.module.line(), TIOCGEXCL, &exclusive), 0);
    QVERIFY(exclusive != 0);

    board.module.phoneConnects("0123456789AB", "Na\xEFve \x11\x13\x03\x1A\x7F"); // XON, XOFF, interrupt, end, delete
    WAIT_UNTIL(sim::Control(board.bus.address()).property(QStringLiteral("Name"))
               == QVariant(QString::fromLatin1("Na\xEFve \x11\x13\x03\x1A\x7F")));
}

void ModuleTest::noSerialLineEndsTheDaemon_data()
{
    QTest::addColumn<QString>("target");
    QTest::newRow("nothing there") << QString();
    QTest::newRow("no terminal") << "/dev/null";
}

void ModuleTest::noSerialLineEndsTheDaemon()
{
    QFETCH(QString, target);
    ModuleBoard board;
    QFile::remove(QStringLiteral("/dev/ttymxc3"));
    QVERIFY(target.isEmpty() || QFile::link(target, QStringLiteral("/dev/ttymxc3")));
    QVERIFY(board.start());
    QProcess &process = board.daemon.process();
    WAIT_UNTIL(process.state() == QProcess::NotRunning);
    QCOMPARE(process.exitCode(), 1);
    QCOMPARE(board.daemon.logTexts().last(), QStringLiteral("Could not open CSR8675 Serial Port"));
}

void ModuleTest::lineThatIsUnplugged()
{
    ModuleBoard board;
    QVERIFY(board.startChecked());
    board.module.unplug();
    const auto failures = [&] {
        return board.daemon.logTexts().filter(QStringLiteral("CSR8675 Serial Port failed:")).size();
    };
    WAIT_UNTIL(failures() == 1);
    sim::writePlayerName("Bath\n"); // a command that nobody takes
    const int before = board.daemon.cpuMs();
    QTest::qWait(1000); // what is measured is what happens while nothing happens
    QVERIFY(board.daemon.cpuMs() - before < 100);
    QCOMPARE(failures(), 1);
    QCOMPARE(sim::Control(board.bus.address()).property(QStringLiteral("AdapterPresent")), QVariant(true));
}

void ModuleTest::floodOnTheLine()
{
    ModuleBoard board(rightSettings(), {QStringLiteral("--stderr")});
    QVERIFY(board.startChecked());
    board.module.manner.mute = true;
    [[maybe_unused]] const int before = board.daemon.residentKib();
    for (int i = 0; i < 64; ++i)
        board.module.sendRaw(QByteArray(64 * 1024, i % 2 == 0 ? 'x' : ' '));
    board.module.sendRaw("\nAVRCP_PLAY 01\n");
    sim::Control control(board.bus.address());
    QVERIFY(sim::waitFor([&] { return control.property(QStringLiteral("Streaming")).toBool(); }, 30000));
#ifndef KADO_SANITIZED // which keeps what is freed
    QVERIFY(board.daemon.residentKib() - before < 2048);
#endif
    WAIT_UNTIL(!board.daemon.logTexts().filter(QStringLiteral("CSR8675 line without end dropped")).isEmpty());
}

QTEST_GUILESS_MAIN(ModuleTest)
#include "tst_module.moc"
