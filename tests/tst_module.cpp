// The shipped binary with an external module on a real pseudo terminal, an I2S switch and a name file.

#include "board/speakername.h"
#include "boardtest.h"
#include "sim/module.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLocalSocket>

#include <cstdio>
#include <iterator>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

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
    void cleanup();
    void nameFileMayChangeAnyhow_data();
    void nameFileMayChangeAnyhow();
    void nameFileMayChangeOften();
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

/// Puts the folders back that the ways of changing a name file leave.
void ModuleTest::cleanup()
{
    ::umount2("/var/data", MNT_DETACH);
    if (QFileInfo(QStringLiteral("/var/data")).isSymLink())
        QFile::remove(QStringLiteral("/var/data"));
    for (const char *folder : {"/var/data", "/var/former", "/var/other", "/tmp/former", "/tmp/other"})
        QDir(QString::fromLatin1(folder)).removeRecursively();
    QDir().mkpath(QStringLiteral("/var/data"));
}

namespace {

/// Writes a file and puts it in the place of another, as careful writers do.
void replace(const char *path, const char *name)
{
    const QByteArray fresh = QByteArray(path) + ".fresh";
    QFile file(QString::fromLatin1(fresh));
    if (!file.open(QIODevice::WriteOnly) || file.write(name) < 0)
        qFatal("%s: %s", fresh.constData(), qPrintable(file.errorString()));
    file.close();
    std::rename(fresh.constData(), path);
}

/// A way in which "/var/data/player_name" comes to hold another name.
struct Change {
    const char *how;
    void (*prepare)(); ///< before the daemon starts; null: an ordinary file in an ordinary folder
    void (*change)();  ///< to the name "Bath"
};

const Change Changes[] = {
    {"written in place", nullptr, [] { sim::writePlayerName("Bath"); }},
    {"replaced", nullptr, [] { replace("/var/data/player_name", "Bath"); }},
    {"replaced, the old one has another name", nullptr,
     [] {
         ::link("/var/data/player_name", "/var/data/backup");
         replace("/var/data/player_name", "Bath");
     }},
    {"replaced, the old one is open", nullptr,
     [] {
         static QFile reader; // for the rest of the run
         reader.setFileName(QStringLiteral("/var/data/player_name"));
         reader.open(QIODevice::ReadOnly);
         replace("/var/data/player_name", "Bath");
     }},
    {"removed and written again", nullptr,
     [] {
         sim::removePlayerName();
         sim::writePlayerName("Bath");
     }},
    {"folder renamed and made again", nullptr,
     [] {
         std::rename("/var/data", "/var/former");
         sim::writePlayerName("Bath");
     }},
    {"folder replaced by another", nullptr,
     [] {
         ::mkdir("/var/other", 0755);
         replace("/var/other/player_name", "Bath");
         std::rename("/var/data", "/var/former");
         std::rename("/var/other", "/var/data");
     }},
    {"folder is a link, which is replaced",
     [] {
         std::rename("/var/data", "/var/former");
         ::symlink("/var/former", "/var/data");
     },
     [] {
         ::mkdir("/var/other", 0755);
         replace("/var/other/player_name", "Bath");
         ::symlink("other", "/var/fresh");
         std::rename("/var/fresh", "/var/data");
     }},
    {"file is a link, its target is replaced",
     [] {
         ::mkdir("/tmp/other", 0755);
         replace("/tmp/other/name", "Kitchen");
         ::unlink("/var/data/player_name");
         ::symlink("../../tmp/other/name", "/var/data/player_name");
     },
     [] {
         ::link("/tmp/other/name", "/tmp/other/backup");
         replace("/tmp/other/name", "Bath");
     }},
    {"file is a link, its target's folder is replaced",
     [] {
         ::mkdir("/tmp/other", 0755);
         replace("/tmp/other/name", "Kitchen");
         ::unlink("/var/data/player_name");
         ::symlink("/tmp/other/name", "/var/data/player_name");
     },
     [] {
         std::rename("/tmp/other", "/tmp/former");
         ::mkdir("/tmp/other", 0755);
         replace("/tmp/other/name", "Bath");
     }},
    {"file is a link, which led nowhere",
     [] {
         ::unlink("/var/data/player_name");
         ::symlink("/tmp/other/name", "/var/data/player_name");
     },
     [] {
         ::mkdir("/tmp/other", 0755);
         replace("/tmp/other/name", "Bath");
     }},
    {"a file system mounted over the folder", nullptr,
     [] {
         ::mount("board", "/var/data", "tmpfs", 0, nullptr); // where it is permitted
         sim::writePlayerName("Bath");
     }},
};

} // namespace

void ModuleTest::nameFileMayChangeAnyhow_data()
{
    QTest::addColumn<int>("row");
    for (size_t i = 0; i < std::size(Changes); ++i)
        QTest::newRow(Changes[i].how) << static_cast<int>(i);
}

void ModuleTest::nameFileMayChangeAnyhow()
{
    QFETCH(int, row);
    const Change &change = Changes[row];
    ModuleBoard board;
    if (change.prepare)
        change.prepare();
    const QList<QByteArray> first = readSpeakerName().isEmpty() ? Check.mid(0, 1) : Check;
    QVERIFY(board.start());
    WAIT_UNTIL(board.module.commands() == first && !board.module.dialogue().last().byDaemon);
    QTest::qWait(250); // a file that has just been found is looked at twice
    const auto renamed = [&](const QByteArray &name) {
        return sim::waitFor(
            [&] { return board.module.settings.name == name && board.module.commands().last() == "status"; });
    };
    change.change();
    QVERIFY(renamed("Bath BT"));
    // And it is followed from there.
    sim::writePlayerName("Hall\n");
    QVERIFY(renamed("Hall BT"));
    for (const char *name : {"Attic", "Cellar"}) {
        replace("/var/data/player_name", name);
        QVERIFY2(renamed(QByteArray(name) + " BT"), name);
    }
}

void ModuleTest::nameFileMayChangeOften()
{
    ModuleBoard board;
    QVERIFY(board.startChecked());
    for (int i = 0; i < 100; ++i) {
        replace("/var/data/neighbour", "Bath");
        QTest::qWait(1); // the daemon is to see each of them
    }
    QTest::qWait(200);
    QCOMPARE(board.module.commands(), Check);
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < 100; ++i) {
        const QByteArray name = "Bath " + QByteArray::number(i);
        if (i % 3 == 0)
            replace("/var/data/player_name", name.constData());
        else
            sim::writePlayerName(name);
        QTest::qWait(1);
    }
    WAIT_UNTIL(board.module.settings.name == "Bath 99 BT" && board.module.commands().last() == "status");
    // Once in a tenth of a second, and again whenever the module has restarted with another name.
    const auto asked = board.module.commands().count("get name");
    qInfo("\"get name\": %d times in %d ms", static_cast<int>(asked), static_cast<int>(clock.elapsed()));
    QVERIFY(asked <= 10 * (clock.elapsed() / 100 + 2));
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
