// SPDX-License-Identifier: MIT
// The shipped binary from its command line to the first notification: exit status, log lines and their destination,
// calls to BlueZ.

#include "boardtest.h"

#include <QFile>
#include <QScopeGuard>
#include <QXmlStreamReader>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

using namespace boardtest;

namespace {

const QString ToStderr = QStringLiteral("--stderr");
const QString Debug = QStringLiteral("--debug");

/// Exit status and output of a daemon that ended by itself.
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
    if (!sim::waitFor([&] { return process.state() == QProcess::NotRunning; }))
        return {};
    return {process.exitCode(), process.exitStatus() == QProcess::CrashExit, daemon.output(), daemon.logTexts()};
}

/// The members of org.kadobt.commands in introspection data, sorted: "method IsAdapterPresent out b", "property Name s
/// read". Argument names and annotations are left out.
QStringList membersOf(const QString &introspection)
{
    QXmlStreamReader xml(introspection);
    QStringList members;
    bool inside = false;
    while (!xml.atEnd()) {
        xml.readNext();
        const auto value = [&](const char *name) { return xml.attributes().value(QLatin1String(name)).toString(); };
        const QString element = xml.name().toString();
        if (element == QLatin1String("interface"))
            inside = xml.isStartElement() && value("name") == QLatin1String("org.kadobt.commands");
        if (!inside || !xml.isStartElement())
            continue;
        if (element == QLatin1String("arg"))
            members.last() += QLatin1Char(' ') + value("direction") + QLatin1Char(' ') + value("type");
        else if (element != QLatin1String("interface") && element != QLatin1String("annotation"))
            members +=
                QStringList{element, value("name"), value("type"), value("access")}.join(QLatin1Char(' ')).trimmed();
    }
    members.sort();
    return members;
}

} // namespace

class StartupTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void withoutBoard();
    void withoutItsName();
    void logLevels();
    void logGoesToSyslog();
    void callsToBluez_data();
    void callsToBluez();
    void waitsForAnAdapter();
    void controlInterface();
    void installedInterface();
};

void StartupTest::withoutBoard()
{
    sim::removeDeviceInfo();
    const Ending version = runToEnd({}, {ToStderr, QStringLiteral("--version")});
    QCOMPARE(version.status, 0);
    QVERIFY(version.output.startsWith("kado-bt "));

    const Ending usage = runToEnd({}, {QStringLiteral("--help")});
    QCOMPARE(usage.status, 255);
    QVERIFY2(usage.output.contains("--disable-aac"), usage.output.constData());

    const sim::Bus bus;
    QCOMPARE(runToEnd(bus.address(), {ToStderr}).status, 1);
}

void StartupTest::withoutItsName()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    const Ending second = runToEnd(board.bus.address(), {ToStderr});
    QVERIFY(second.aborted);
    QVERIFY(second.log.last().startsWith(QStringLiteral("Fatal: ")));
    QVERIFY(board.player.connectAudio()); // the first daemon's socket still works

    const Ending busless = runToEnd(QStringLiteral("unix:path=/nowhere"), {ToStderr});
    QVERIFY(busless.aborted);
    QVERIFY(busless.log.last().startsWith(QStringLiteral("Fatal: Not connected")));
}

void StartupTest::logLevels()
{
    // Only the daemon's own level counts, not Qt's logging rules.
    qputenv("QT_LOGGING_RULES", "*.debug=false");
    const auto restore = qScopeGuard([] { qunsetenv("QT_LOGGING_RULES"); });
    sim::Board board;
    QVERIFY(board.startDaemon());
    WAIT_UNTIL(board.daemon.log().size() == 2);
    QVERIFY(board.daemon.logTexts().constFirst().startsWith(QStringLiteral("start kado-bt ")));
    QVERIFY(board.daemon.logged(QStringLiteral("Set default adapter:  \"/org/bluez/hci0\"")));

    QCOMPARE(runToEnd(board.bus.address(), {ToStderr, Debug, QStringLiteral("-1")}).log, QStringList()); // no reason
    board.daemon.stop();
    QVERIFY(board.startDaemon({ToStderr, Debug, QStringLiteral("9")}));
    WAIT_UNTIL(board.daemon.logged(
        QStringLiteral("SetProperty \"org.bluez.Adapter1\" \"/org/bluez/hci0\" \"Powered\" QVariant(bool, true)")));
}

void StartupTest::logGoesToSyslog()
{
    if (QFile::exists(QStringLiteral("/dev/log")))
        QSKIP("this machine has a syslog of its own");
    const FileDescriptor log(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrcpy(address.sun_path, "/dev/log");
    QCOMPARE(::bind(log.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    QCOMPARE(::chmod(address.sun_path, 0666), 0); // the daemon may run as another user

    sim::Board board;
    QVERIFY(board.startDaemon({}));
    QByteArray line(512, '\0');
    line.resize(static_cast<int>(::recv(log.get(), line.data(), 512, 0)));
    QVERIFY2(line.startsWith("<14>"), line.constData()); // facility user, priority info
    QVERIFY2(line.contains("kado-bt: start kado-bt "), line.constData());
    QCOMPARE(board.daemon.log().size(), 0);
    QFile::remove(QStringLiteral("/dev/log"));
}

void StartupTest::callsToBluez_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("endpoints");
    QTest::newRow("SBC and AAC") << QStringList{ToStderr} << 2;
    QTest::newRow("SBC alone") << QStringList{ToStderr, QStringLiteral("--disable-aac")} << 1;
}

void StartupTest::callsToBluez()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, endpoints);
    sim::Board board;
    QVERIFY(board.startDaemon(arguments));
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
        QStringLiteral("RegisterEndpoint /org/bluez/hci0 /endpoint/0 {Capabilities: FF FF 02 FA, Codec: 0, "
                       "UUID: \"0000110B-0000-1000-8000-00805F9B34FB\"}"),
        QStringLiteral("RegisterEndpoint /org/bluez/hci0 /endpoint/1 {Capabilities: 80 FF FC FF FF FF, Codec: 2, "
                       "UUID: \"0000110B-0000-1000-8000-00805F9B34FB\"}"),
    };
    QStringList calls;
    for (const sim::BluezCall &call : board.bluez.calls())
        calls << call.text();
    QCOMPARE(calls, expected.mid(0, expected.size() - 2 + endpoints));
    // BlueZ accepted all of them.
    QCOMPARE(board.bluez.endpoints().size(), endpoints);
    QVERIFY(board.bluez.defaultAgent());
    QCOMPARE(board.bluez.property(Hci0, QStringLiteral("org.bluez.Adapter1"), QStringLiteral("DiscoverableTimeout")),
             QVariant(0U));
    QCOMPARE(board.player.targets(), QStringList(notification(true, false, "", false)));
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
}

void StartupTest::controlInterface()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(true));
    QCOMPARE(board.control.property(QStringLiteral("Connected")), QVariant(false));
    QCOMPARE(board.control.property(QStringLiteral("Streaming")), QVariant(false));
    QCOMPARE(board.control.property(QStringLiteral("Name")), QVariant(QString()));
    QCOMPARE(board.control.call(QStringLiteral("IsAdapterPresent")).arguments(), QVariantList{true});

    QCOMPARE(board.control.call(QStringLiteral("SelectBluetooth")).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(board.control.setProperty(QStringLiteral("Connected"), false).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(board.control.setProperty(QStringLiteral("Name"), QStringLiteral("x")).type(), QDBusMessage::ErrorMessage);

    sim::writePlayerName("Bath\n");
    QCOMPARE(board.control.call(QStringLiteral("ResetAlias")).type(), QDBusMessage::ReplyMessage);
    WAIT_UNTIL(board.bluez.property(Hci0, QStringLiteral("org.bluez.Adapter1"), QStringLiteral("Alias"))
               == QStringLiteral("Bath BT"));

    // Without a phone, there is nothing to play or to disconnect.
    QCOMPARE(board.bluez.countCalls(QStringLiteral("Disconnect")), 0);
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    phone.connect();
    WAIT_UNTIL(board.player.requests().size() == 2);
    QCOMPARE(board.player.targets().constLast(), notification(true, true, "Anna", false));
}

void StartupTest::installedInterface()
{
    QFile installed(QStringLiteral(KADO_CONTROL_INTERFACE));
    QVERIFY(installed.open(QIODevice::ReadOnly));
    sim::Board board;
    QVERIFY(board.startDaemon());
    const QStringList served = membersOf(board.control.introspect());
    QCOMPARE(membersOf(QString::fromUtf8(installed.readAll())), served);
    QVERIFY(!served.isEmpty());
}

QTEST_GUILESS_MAIN(StartupTest)
#include "tst_startup.moc"
