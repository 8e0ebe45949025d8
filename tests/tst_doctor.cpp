// SPDX-License-Identifier: MIT
// The shipped kado-bt-doctor on boards that are healthy, broken, hang, or are hidden from its user.

#include "sim/module.h"
#include "streamingboard.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>

#include <sys/stat.h>
#include <unistd.h>

using namespace boardtest;

namespace {

const QString AdapterInterface = "org.bluez.Adapter1";
const QString MainConf = "/etc/bluetooth/main.conf";
const QString Switch = "/sys/class/leds/bt_sw_i2s/brightness";
const QString Console = "/sys/class/tty/console/active";

struct Report {
    QString text, ok, note, wrong; ///< the output; the checked things at each level, sorted
    int status = -1;               ///< -1: it crashed, printed no JSON, or gave no advice for a thing that is wrong
    qint64 ms = 0;
};

Report examine(const QString &bus, const QStringList &prefix = {}, const QStringList &format = {"--json"})
{
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", bus.toUtf8());
    sim::ChildProcess process;
    QElapsedTimer clock;
    clock.start();
    const QStringList command = prefix + QStringList(KADO_BT_DOCTOR_BINARY) + format;
    process.start(command.first(), command.mid(1));
    if (!sim::waitFor([&] { return process.state() == QProcess::NotRunning; }, 15'000))
        return {};
    const QByteArray text = process.readAll();
    const QJsonObject json = QJsonDocument::fromJson(text).object();
    QMap<QString, QStringList> things;
    bool sound = process.exitStatus() == QProcess::NormalExit && json["healthy"].toBool() == (process.exitCode() == 0);
    const QJsonArray findings = json["findings"].toArray();
    for (const QJsonValue finding : findings) {
        things[finding["level"].toString()] << finding["about"].toString();
        sound = sound && (finding["level"] != "wrong" || !finding["advice"].toString().isEmpty());
    }
    for (QStringList &list : things)
        list.sort();
    return {QString::fromUtf8(text),    things["ok"].join("; "),         things["note"].join("; "),
            things["wrong"].join("; "), sound ? process.exitCode() : -1, clock.elapsed()};
}

void block(const char *soft, const char *hard)
{
    sim::writeFile("/sys/class/rfkill/rfkill0/type", "bluetooth\n");
    sim::writeFile("/sys/class/rfkill/rfkill0/soft", soft);
    sim::writeFile("/sys/class/rfkill/rfkill0/hard", hard);
}

/// A process with this executable that does nothing.
struct Impostor : sim::ChildProcess {
    explicit Impostor(const QString &path)
    {
        QDir().mkpath(QFileInfo(path).path());
        QFile::copy("/bin/cat", path);
        start(path, QStringList());
        waitForStarted();
    }
    ~Impostor() override { closeWriteChannel(), waitForFinished(); } // the process ends at end of file
};

} // namespace

class DoctorTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void healthySpeaker();
    void everythingIsWrong();
    void silentStreams();
    void neverHangs();
    void plainUser();
    void module();
};

void DoctorTest::initTestCase()
{
    if (::access("/sys/class", W_OK) != 0)
        QSKIP("/sys/class is read-only in this container");
    // Give this user, who runs the daemon, the name of the service's user.
    const QByteArray group = QByteArray::number(::getgid());
    const QByteArray stranger = "\nstranger:x:4711:4711::/tmp:/bin/sh\n";
    sim::writeFile("/etc/passwd",
                   "kado-bt:x:" + QByteArray::number(::getuid()) + ':' + group + "::/tmp:/bin/sh" + stranger);
    sim::writeFile("/etc/group", "kado-bt:x:" + group + ":\n");
}

void DoctorTest::init()
{
    sim::writeFile(MainConf,
                   "[General]\n# yes\nJustWorksRepairing = confirm\nClass = 0x000414\nFastConnectable=true\n");
    block("0", "0");
    for (const char *file :
         {"/tmp/bluetooth", "/etc/kado_info.xml", "/var/data/player_name"}) // left by the test before
        QFile::remove(file);
}

void DoctorTest::healthySpeaker()
{
    const Impostor pulse("/tmp/pulseaudio"); // without a library for Bluetooth
    ConfiguredBoard board;
    QVERIFY(board.ready && board.startHeard() && board.send(packets(0.1)));
    WAIT_UNTIL(!board.board.player.heard().isEmpty());
    const Report report = examine(board.board.bus.address());
    QCOMPARE(report.wrong + report.note, QString());
    QCOMPARE(report.status, 0);
    QCOMPARE(report.ok,
             "BlueZ; adapter; audio sink; audio socket; control interface; device class; device file; discoverable; "
             "discoverable for; listener; main.conf, General/Class; main.conf, General/ControllerMode; main.conf, "
             "General/FastConnectable; "
             "main.conf, General/JustWorksRepairing; main.conf, General/PairableTimeout; main.conf, "
             "Policy/ReconnectAttempts; "
             "name on the air; org.kadobt; other sound servers; phone; player; power; rfkill; speaker's name; stream; "
             "system bus");
    QCOMPARE(board.board.bluez.countCalls("Set"), 4); // all by the daemon
    QVERIFY(board.streaming() && board.board.player.audioConnected());
}

void DoctorTest::everythingIsWrong()
{
    sim::Board board;
    board.bluez.setProperty(Hci0, AdapterInterface, "Class", 0x10CU); // a laptop
    QCOMPARE(
        examine(board.bus.address()).wrong,
        "audio sink; audio socket; device class; discoverable; discoverable for; name on the air; org.kadobt; power");

    board.bluez.removeAdapter();
    board.player.stopServing();
    sim::removeDeviceInfo();
    sim::writePlayerName("\nKitchen\n");
    sim::writeFile("/tmp/bluetooth", "");
    block("1", "0");
    sim::writeFile(MainConf, "[General]\nPairableTimeout = 60\nControllerMode = le\n[Policy]\nReconnectAttempts = 0\n");
    const Impostor alsa("/tmp/bluealsa");
    const Impostor plumber("/tmp/libspa-bluez5/wireplumber");
    const Report report = examine(board.bus.address());
    QCOMPARE(
        report.wrong,
        "adapter; audio socket; device file; main.conf, General/ControllerMode; main.conf, General/JustWorksRepairing; "
        "main.conf, General/PairableTimeout; org.kadobt; other sound servers; other sound servers; player; rfkill; "
        "speaker's name");
    QCOMPARE(report.note,
             "main.conf, General/Class; main.conf, General/FastConnectable; main.conf, Policy/ReconnectAttempts");
    QCOMPARE(report.status, 1);

    board.bluez.crash();
    block("0", "1");
    sim::writeFile(MainConf, "no settings\n");
    sim::removePlayerName();
    QFile::remove("/tmp/bluetooth");
    QCOMPARE(
        examine(board.bus.address()).wrong,
        "BlueZ; audio socket; device file; main.conf; org.kadobt; other sound servers; other sound servers; player; "
        "rfkill; speaker's name");
}

void DoctorTest::silentStreams()
{
    ConfiguredBoard board;
    const auto report = [&] { return examine(board.board.bus.address()); };
    QVERIFY(board.ready && report().note.contains("stream")); // idle
    QVERIFY(board.phone.start() && board.active() && report().wrong.contains("listener"));
    board.board.daemon.stop();
    QVERIFY(board.board.startDaemon() && report().wrong.contains("stream")); // started while the phone plays

    sim::Phone other(board.board.bluez, OtherPhonePath, "Bob\nok     phone");
    other.connect();
    board.phone.disconnect();
    WAIT_UNTIL(board.board.control.property("Connected") == false);
    QVERIFY(report().wrong.contains("phone"));
    const QString lines = examine(board.board.bus.address(), {}, {}).text;
    QVERIFY2(lines.contains("\nwrong  phone") && !lines.contains("\nok     phone"), qPrintable(lines));
    QCOMPARE(::chmod("/tmp/bluetooth", 0777), 0);
    QVERIFY(report().note.contains("audio socket"));
}

void DoctorTest::neverHangs()
{
    constexpr int EndMs = 8000; // 5 s, and a reserve for a busy machine; QtDBus alone would wait for 25 s
    QVERIFY(examine("unix:path=/nowhere").wrong.contains("system bus"));
    QLocalServer mute;
    QVERIFY(mute.listen("/tmp/mute"));
    const Report noBus = examine("unix:path=/tmp/mute");
    QVERIFY2(noBus.wrong.contains("system bus") && noBus.ms < EndMs, qPrintable(noBus.text));

    sim::Board board;
    QVERIFY(board.startDaemon() && board.daemon.pause());
    board.bluez.neverAnswer("GetManagedObjects");
    const Report noAnswer = examine(board.bus.address());
    QCOMPARE(noAnswer.wrong, "BlueZ; control interface");
    QVERIFY2(noAnswer.ms < EndMs, qPrintable(noAnswer.text));
    QVERIFY(board.daemon.resume());

    board.bluez.intercept("GetManagedObjects", [&](const QDBusMessage &call) {
        return board.bluez.connection().send(call.createReply("hello"));
    });
    QCOMPARE(examine(board.bus.address()).wrong, "BlueZ");
    board.bluez.stopIntercepting("GetManagedObjects");
    board.bluez.setProperty(Hci0, AdapterInterface, "Powered", "yes");
    for (const char *file : {"/var/data/player_name", "/etc/kado_info.xml"})
        QVERIFY(QFile::remove(file) && ::mkfifo(file, 0666) == 0);
    QCOMPARE(examine(board.bus.address()).wrong, "device file; power; speaker's name");
}

void DoctorTest::plainUser()
{
    if (::getuid() != 0)
        QSKIP("only root can be another user");
    const QStringList asStranger{"setpriv", "--reuid", "4711", "--regid", "4711", "--clear-groups"};
    sim::Board board;
    board.bluez.connection().registerService("org.kadobt");
    for (const char *method : {"GetManagedObjects", "GetAll"}) // as a bus policy does
        board.bluez.refuse(method, "org.freedesktop.DBus.Error.AccessDenied", "no");
    for (const QString &file : {MainConf, QString("/etc/kado_info.xml")})
        QVERIFY(QFile::setPermissions(file, QFile::ReadOwner));
    const Impostor pulse("/tmp/pulseaudio");
    QCOMPARE(examine(board.bus.address(), asStranger).note,
             "BlueZ; control interface; device file; main.conf; other sound servers");
    QCOMPARE(examine(board.bus.address()).wrong, "BlueZ; audio socket; control interface");

    board.player.stopServing();
    QLocalServer socket;
    QVERIFY(QLocalServer::removeServer("bluetooth") && socket.listen("bluetooth"));
    sim::ChildProcess player; // of another user, who may not connect to the audio socket
    const char
        *const serve = "import socket; s = socket.create_server(('127.0.0.1', 11000)); print(1, flush=True); input()";
    player.start("setpriv", asStranger.mid(1) + QStringList{"python3", "-c", serve});
    QVERIFY(player.waitForReadyRead() && examine(board.bus.address()).text.contains("user stranger may not connect"));
    player.closeWriteChannel(); // ends the process
    player.waitForFinished();
}

void DoctorTest::module()
{
    sim::writeDeviceInfo("<kado>\n<settings>\n<bt>melody</bt>\n</settings>\n</kado>\n");
    sim::writePlayerName("Kitchen\n");
    QFile::remove(Switch);
    sim::writeFile(Console, "tty0 ttymxc3\n");
    const sim::Bus bus;
    sim::Player player;
    sim::Module module; // also has the line open
    sim::Daemon daemon;
    daemon.start(bus.address());
    QVERIFY(player.serve() && player.connectAudio());
    WAIT_UNTIL(!module.commands().isEmpty());
    QCOMPARE(examine(bus.address()).wrong, "I2S switch; kernel console; users of the line");

    sim::writeFile(Console, "tty0\n");
    sim::writeFile(Switch, "0");
    module.closeLine();
    module.phoneConnects("00AA01010042", "Anna");
    module.phonePlays();
    sim::Control control(bus.address());
    WAIT_UNTIL(control.property("Streaming") == true && !player.heard().isEmpty());
    const Report healthy = examine(bus.address());
    QCOMPARE(healthy.wrong + healthy.note, QString());
    QCOMPARE(healthy.ok,
             "I2S switch; audio socket; control interface; device file; kernel console; listener; org.kadobt; phone; "
             "player; "
             "serial line; speaker's name; stream; system bus; users of the line");

    daemon.stop();
    QVERIFY(examine(bus.address()).wrong.contains("users of the line"));
    QFile::remove("/dev/ttymxc3");
    sim::writeFile("/dev/ttymxc3", "");
    QVERIFY(examine(bus.address()).wrong.contains("serial line"));
}

QTEST_GUILESS_MAIN(DoctorTest)
#include "tst_doctor.moc"
