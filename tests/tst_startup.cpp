// The shipped binary from its command line to the first notification: exit statuses, log, bus, BlueZ calls.

#include "boardtest.h"

#include <QDBusConnection>
#include <QFile>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

using namespace boardtest;

namespace {

const QStringList ToStderr{QStringLiteral("--stderr")};
const QStringList Traced{QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")};

/// How a daemon that does not stay ended, and what it printed.
struct Ending {
    int status = -1;
    bool aborted = false;
    QByteArray output;
    QStringList log;
};

Ending runToEnd(const QString &bus, const QStringList &arguments)
{
    sim::Daemon daemon;
    daemon.start(bus, arguments);
    QProcess &process = daemon.process();
    Ending ending;
    if (!sim::waitFor([&] { return process.state() == QProcess::NotRunning; }))
        return ending;
    ending.aborted = process.exitStatus() == QProcess::CrashExit;
    ending.status = process.exitCode();
    ending.output = daemon.output();
    ending.log = daemon.logTexts();
    return ending;
}

QStringList textsOf(const QList<sim::BluezCall> &calls)
{
    QStringList texts;
    for (const sim::BluezCall &call : calls)
        texts << call.text();
    return texts;
}

} // namespace

class StartupTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void versionAndUsage();
    void deviceFileMustBeThere();
    void refusedServiceNameIsFatal();
    void logLevels();
    void logGoesToSyslog();
    void callsToBluez();
    void withoutAac();
    void waitsForAnAdapter();
    void controlInterface();
};

void StartupTest::versionAndUsage()
{
    sim::removeDeviceInfo();
    const Ending version = runToEnd({}, {QStringLiteral("--stderr"), QStringLiteral("--version")});
    QCOMPARE(version.status, 0);
    QCOMPARE(version.output, QByteArray("kado-bt 0.14\n"));
    QCOMPARE(version.log, QStringList());

    const Ending usage = runToEnd({}, {QStringLiteral("--help")});
    QCOMPARE(usage.status, 255);
    QCOMPARE(usage.output,
             QByteArray("kado-bt 0.14 invalid command line, valid paramaters:\n"
                        "--version      Display version and exit.\n"
                        "--stderr       Log to stderr instead of syslog.\n"
                        "--debug N      Set debug level to N (default: 0)\n"
                        "--disable-aac  Disable AAC support\n"));
}

void StartupTest::deviceFileMustBeThere()
{
    const sim::Bus bus;
    sim::removeDeviceInfo();
    Ending ending = runToEnd(bus.address(), ToStderr);
    QCOMPARE(ending.status, 1);
    QCOMPARE(ending.log, QStringList(QStringLiteral("start kado-bt 0.14")));
    ending = runToEnd(bus.address(), Traced);
    QCOMPARE(ending.log.last(), QStringLiteral("Could not open kado_info.xml"));
}

void StartupTest::refusedServiceNameIsFatal()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    Ending second = runToEnd(board.bus.address(), ToStderr);
    QVERIFY(second.aborted);
    QVERIFY(board.player.connectAudio()); // it left the first one's socket alone
    QVERIFY(second.log.last().startsWith(QStringLiteral("Fatal: ")));
    second = runToEnd(board.bus.address(),
                      {QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("-1")});
    QVERIFY(second.aborted);
    QCOMPARE(second.log, QStringList());

    const Ending busless = runToEnd(QStringLiteral("unix:path=/nowhere"), ToStderr);
    QVERIFY(busless.aborted);
    QVERIFY(busless.log.last().startsWith(QStringLiteral("Fatal: Not connected")));
}

void StartupTest::logLevels()
{
    // Whatever an image's Qt is told, the daemon's own level decides.
    qputenv("QT_LOGGING_RULES", "*.debug=false");
    sim::Board board;
    QVERIFY(board.startDaemon());
    WAIT_UNTIL(board.daemon.log().size() >= 2);
    QCOMPARE(board.daemon.logTexts(),
             QStringList(
                 {QStringLiteral("start kado-bt 0.14"), QStringLiteral("Set default adapter:  \"/org/bluez/hci0\" ")}));
    board.daemon.stop();
    board.player.forgetRequests();
    QVERIFY(board.startDaemon(Traced));
    for (const char *line : {"Register Service", "Register Object true", "FindAnAvailableAdapter", "CodecSBC",
                             "SetProperty \"org.bluez.Adapter1\" \"/org/bluez/hci0\" \"Powered\" QVariant(bool, true)",
                             "Transport::InitSocketServer()", "Agent1::Agent1()", "\"Kitchen BT\""})
        QVERIFY2(sim::waitFor([&] { return board.daemon.logged(QString::fromLatin1(line)); }), line);
    qunsetenv("QT_LOGGING_RULES");
}

void StartupTest::logGoesToSyslog()
{
    if (QFile::exists(QStringLiteral("/dev/log")))
        QSKIP("this machine has a syslog of its own");
    const int log = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrcpy(address.sun_path, "/dev/log");
    QCOMPARE(::bind(log, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    QCOMPARE(::chmod(address.sun_path, 0666), 0); // the daemon may run as another user

    sim::Board board;
    QVERIFY(board.startDaemon({}));
    QByteArray line(512, '\0');
    line.resize(static_cast<int>(::recv(log, line.data(), 512, 0)));
    QVERIFY2(line.startsWith("<14>"), line.constData()); // facility user, priority info
    QVERIFY2(line.contains("kado-bt: start kado-bt 0.14"), line.constData());
    QCOMPARE(board.daemon.log().size(), 0);
    ::close(log);
    QFile::remove(QStringLiteral("/dev/log"));
}

void StartupTest::callsToBluez()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    const QStringList expected{
        QStringLiteral("RegisterAgent /org/bluez /Nodera/BluetoothAgent \"NoInputNoOutput\""),
        QStringLiteral("RequestDefaultAgent /org/bluez /Nodera/BluetoothAgent"),
        QStringLiteral("GetManagedObjects /"),
        QStringLiteral("Set /org/bluez/hci0 \"org.bluez.Adapter1\" \"Alias\" \"Kitchen BT\""),
        QStringLiteral("Set /org/bluez/hci0 \"org.bluez.Adapter1\" \"Powered\" true"),
        QStringLiteral("Set /org/bluez/hci0 \"org.bluez.Adapter1\" \"DiscoverableTimeout\" 0"),
        QStringLiteral("Set /org/bluez/hci0 \"org.bluez.Adapter1\" \"Discoverable\" true"),
        QStringLiteral("RegisterAgent /org/bluez /Nodera/BluetoothAgent \"NoInputNoOutput\""),
        QStringLiteral("RequestDefaultAgent /org/bluez /Nodera/BluetoothAgent"),
    };
    QStringList calls = textsOf(board.bluez.calls());
    QCOMPARE(calls.mid(0, expected.size()), expected);
    calls = calls.mid(expected.size());
    const struct {
        int codec;
        const char *capabilities;
    } offered[] = {{0, "ffff02fa"}, {2, "80fffcffffff"}}; // SBC, AAC
    const QList<sim::RegisteredEndpoint> &endpoints = board.bluez.endpoints();
    QCOMPARE(endpoints.size(), calls.size());
    QCOMPARE(static_cast<size_t>(endpoints.size()), std::size(offered));
    for (int i = 0; i < endpoints.size(); ++i) {
        QVERIFY(calls[i].startsWith(QStringLiteral("RegisterEndpoint /org/bluez/hci0 /endpoint/%1").arg(i)));
        QCOMPARE(endpoints[i].uuid, QStringLiteral("0000110B-0000-1000-8000-00805F9B34FB"));
        QCOMPARE(int{endpoints[i].codec}, offered[i].codec);
        QCOMPARE(endpoints[i].capabilities.toHex(), QByteArray(offered[i].capabilities));
    }
    QVERIFY(board.bluez.defaultAgent());
    QCOMPARE(board.bluez.property(Hci0, QStringLiteral("org.bluez.Adapter1"), QStringLiteral("DiscoverableTimeout")),
             QVariant(0U));
    QCOMPARE(board.player.targets(), QStringList(notification(true, false, "", false)));
}

void StartupTest::withoutAac()
{
    sim::Board board;
    QVERIFY(board.startDaemon({QStringLiteral("--stderr"), QStringLiteral("--disable-aac")}));
    QVERIFY(!board.bluez.endpoints().isEmpty());
    for (const sim::RegisteredEndpoint &endpoint : board.bluez.endpoints())
        QVERIFY(endpoint.codec != 2);
}

void StartupTest::waitsForAnAdapter()
{
    sim::Board board;
    board.bluez.removeAdapter();
    board.daemon.start(board.bus.address());
    WAIT_UNTIL(board.bluez.countCalls(QStringLiteral("GetManagedObjects")) == 1);
    QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(false));
    QCOMPARE(board.player.requests().size(), 0);

    board.bluez.addAdapter();
    WAIT_UNTIL(board.player.targets() == QStringList(notification(true, false, "", false)));
    QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(true));
    QVERIFY(!board.bluez.endpoints().isEmpty());
}

void StartupTest::controlInterface()
{
    sim::Board board;
    QVERIFY(board.startDaemon(Traced));
    QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(true));
    QCOMPARE(board.control.property(QStringLiteral("Connected")), QVariant(false));
    QCOMPARE(board.control.property(QStringLiteral("Streaming")), QVariant(false));
    QCOMPARE(board.control.property(QStringLiteral("Name")), QVariant(QString()));
    QCOMPARE(board.control.call(QStringLiteral("IsAdapterPresent")).arguments(), QVariantList{true});

    QCOMPARE(board.control.call(QStringLiteral("SelectBluetooth")).type(), QDBusMessage::ReplyMessage);
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("SelectBluetooth(): no transport")));
    for (const bool connected : {true, false})
        QCOMPARE(board.control.setProperty(QStringLiteral("Connected"), connected).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(board.bluez.countCalls(QStringLiteral("Disconnect")), 0);
    QCOMPARE(board.control.setProperty(QStringLiteral("Name"), QStringLiteral("x")).type(), QDBusMessage::ErrorMessage);

    sim::writePlayerName("Bath\n");
    QCOMPARE(board.control.call(QStringLiteral("ResetAlias")).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(board.bluez.property(Hci0, QStringLiteral("org.bluez.Adapter1"), QStringLiteral("Alias")),
             QVariant(QStringLiteral("Bath BT")));
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("DBusCommandListener::ResetAlias()")));

    // One object with both interfaces serves both paths.
    for (const char *path : {"/kadobt", "/Nodera/BluetoothAgent"}) {
        const QString xml = board.bluez
                                .call(QDBusMessage::createMethodCall(
                                    QStringLiteral("org.kadobt"), QLatin1String(path),
                                    QStringLiteral("org.freedesktop.DBus.Introspectable"),
                                    QStringLiteral("Introspect")))
                                .arguments()
                                .value(0)
                                .toString();
        QVERIFY2(xml.contains(QStringLiteral("org.kadobt.commands")), path);
        QVERIFY2(xml.contains(QStringLiteral("org.bluez.Agent1")), path);
    }
}

QTEST_GUILESS_MAIN(StartupTest)
#include "tst_startup.moc"
