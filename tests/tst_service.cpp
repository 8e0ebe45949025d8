// SPDX-License-Identifier: MIT
// Permissions by bus policy, users and unit. scripts/as-service runs the daemon, on a bus with the shipped policy and
// the users of tests/board/users.conf. scripts/check-service runs this test.

#include "boardtest.h"

#include <QDBusConnectionInterface>
#include <QFile>

using namespace boardtest;

namespace {

struct Ending {
    int status = -1;
    QString output;
};

/// Runs a command as `user`, with the user's groups. Runs the event loop meanwhile, for the simulated BlueZ.
Ending runAs(const QString &user, const QStringList &command)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(
        QStringLiteral("setpriv"),
        QStringList{QStringLiteral("--reuid"), user, QStringLiteral("--regid"), user, QStringLiteral("--init-groups")}
            + command);
    if (!sim::waitFor([&] { return process.state() == QProcess::NotRunning; }, 10'000))
        return {};
    return {process.exitCode(), QString::fromUtf8(process.readAll())};
}

/// Calls `what`, "connect" or "bind", for the path of the audio socket.
Ending doWithAudioSocket(const QString &user, const QString &what)
{
    return runAs(
        user,
        {"/usr/bin/python3", "-c", "import socket; socket.socket(socket.AF_UNIX)." + what + "('/tmp/bluetooth')"});
}

/// Runs the unit's command "ExecStartPre=-+" as root.
Ending runBeforeStart()
{
    QFile unit(qEnvironmentVariable("KADO_SERVICE") + QStringLiteral("/kado-bt.service"));
    const QByteArray setting = "\nExecStartPre=-+";
    if (!unit.open(QIODevice::ReadOnly))
        return {};
    const QByteArray text = unit.readAll();
    const auto begin = text.indexOf(setting) + setting.size();
    const QByteArray command = text.mid(begin, text.indexOf('\n', begin) - begin);
    return runAs("root", QProcess::splitCommand(QString::fromUtf8(command)));
}

} // namespace

class ServiceTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void policy_data();
    void policy();
    void foreignSignalsAreRefused();
    void bluezMessagesAreAllowed();
    void processIsConfined();
    void audioSocketIsForTheGroup();
    void leftoverSocketIsReplaced();

private:
    std::unique_ptr<sim::Board> board_;
};

void ServiceTest::initTestCase()
{
    if (!qEnvironmentVariableIsSet("KADO_SERVICE"))
        QSKIP("run by scripts/check-service");
    board_ = std::make_unique<sim::Board>();
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", board_->bus.address().toLatin1()); // for the command of the unit
    QVERIFY2(board_->startDaemon(), qPrintable(board_->daemon.logTexts().join('\n')));
}

void ServiceTest::policy_data()
{
    QTest::addColumn<QString>("call"); // destination, path, member and arguments
    QTest::addColumn<QStringList>("allowed");
    const QStringList group{"root", "player", "kado-bt"};
    QTest::newRow("own the name")
        << "org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus.RequestName string:org.kadobt uint32:4"
        << QStringList{"kado-bt"};
    QTest::newRow("command") << "org.kadobt /kadobt org.kadobt.commands.IsAdapterPresent" << group;
    QTest::newRow("read a property")
        << "org.kadobt /kadobt org.freedesktop.DBus.Properties.Get string:org.kadobt.commands string:Name" << group;
    QTest::newRow("introspect") << "org.kadobt /kadobt org.freedesktop.DBus.Introspectable.Introspect" << group;
    QTest::newRow("ping") << "org.kadobt /kadobt org.freedesktop.DBus.Peer.Ping" << QStringList();
    QTest::newRow("call the agent") << "org.kadobt /Nodera/BluetoothAgent org.bluez.Agent1.Release" << QStringList();
    QTest::newRow("call an endpoint") << "org.kadobt /endpoint/0 org.bluez.MediaEndpoint1.Release" << QStringList();
    QTest::newRow("call BlueZ") << "org.bluez / org.freedesktop.DBus.ObjectManager.GetManagedObjects"
                                << QStringList{"root", "kado-bt"};
}

void ServiceTest::policy()
{
    QFETCH(QString, call);
    QFETCH(QStringList, allowed);
    const QString name = call.section(' ', 0, 0);
    const QString uniqueName = board_->bluez.connection().interface()->serviceOwner(name);
    for (const QString &destination : {name, uniqueName}) { // the unique name must not bypass the policy
        const QStringList send = QStringList{"dbus-send", "--bus=" + board_->bus.address(), "--print-reply",
                                             "--dest=" + destination}
            + call.split(' ').mid(1);
        for (const char *user : {"root", "player", "kado-bt", "stranger"}) {
            const Ending ending = runAs(user, send);
            const bool refused = ending.output.contains("org.freedesktop.DBus.Error.AccessDenied");
            QVERIFY2(allowed.contains(user) ? ending.status == 0 : refused, qPrintable(user + (' ' + ending.output)));
        }
    }
}

void ServiceTest::foreignSignalsAreRefused()
{
    // Only a monitor sees the refusal, because a signal has no reply.
    QProcess monitor;
    monitor.start("dbus-monitor", {"--address", board_->bus.address()});
    QByteArray seen;
    const auto sees = [&](const char *text) {
        return sim::waitFor([&] {
            seen += monitor.readAll();
            return seen.contains(text);
        });
    };
    QVERIFY(sees("NameLost")); // sent when the connection has become a monitor
    const QStringList send{"dbus-send",       "--bus=" + board_->bus.address(), "--type=signal", "--dest=org.kadobt",
                           "/org/bluez/hci0", "org.bluez.Device1.Forged"};
    QCOMPARE(runAs("stranger", send).status, 0);
    QVERIFY2(sees("member=Forged") && sees("Rejected send message"), seen.constData());
    monitor.terminate();
    monitor.waitForFinished();
}

void ServiceTest::bluezMessagesAreAllowed()
{
    sim::Phone phone(board_->bluez, PhonePath, QStringLiteral("Anna"));
    phone.connect();
    WAIT_UNTIL(board_->player.targets().contains(notification(true, true, "Anna", false)));
    QVERIFY(phone.authorize() && phone.configure({}) && phone.clear());
    phone.disconnect();
    WAIT_UNTIL(board_->player.targets().constLast() == notification(true, false, "", false));
}

void ServiceTest::processIsConfined()
{
    const QString folder = QStringLiteral("/proc/%1").arg(board_->daemon.process().processId());
    const QString status = runAs("root", {"cat", folder + "/status"}).output;
    const QString user = runAs("kado-bt", {"id", "-u"}).output.trimmed();
    const QStringList lines{"Umask:\t0007",   "Uid:\t" + user, "CapPrm:\t0000000000000000", "CapBnd:\t0000000000000000",
                            "NoNewPrivs:\t1", "Seccomp:\t2"};
    for (const QString &line : lines)
        QVERIFY2(status.contains('\n' + line), qPrintable(status));

    if (runAs("root", {"unshare", "--mount", "true"}).status != 0)
        QSKIP("no mount namespaces here, so the rest of the sandbox is not tested");
    const auto rootMayWriteThere = [&](const char *path) {
        return runAs("root", {"nsenter", "--mount=" + folder + "/ns/mnt", "touch", path}).status == 0;
    };
    QVERIFY(rootMayWriteThere("/tmp/probe"));
    for (const char *path : {"/probe", "/etc/probe", "/run/probe", "/sys/probe", "/var/data/probe"})
        QVERIFY2(!rootMayWriteThere(path), path);
}

void ServiceTest::audioSocketIsForTheGroup()
{
    QCOMPARE(doWithAudioSocket("player", "connect").status, 0);
    const QString refusal = doWithAudioSocket("stranger", "connect").output;
    QVERIFY2(refusal.contains("PermissionError"), qPrintable(refusal));
}

void ServiceTest::leftoverSocketIsReplaced()
{
    QCOMPARE(runBeforeStart().status, 0); // keeps a socket that is in use
    QCOMPARE(doWithAudioSocket("player", "connect").status, 0);

    board_->daemon.stop();
    QFile::remove("/tmp/bluetooth");
    QCOMPARE(doWithAudioSocket("stranger", "bind").status, 0);
    QCOMPARE(runBeforeStart().status, 0);
    QVERIFY(board_->startDaemon());
    QCOMPARE(doWithAudioSocket("player", "connect").status, 0);
}

QTEST_GUILESS_MAIN(ServiceTest)
#include "tst_service.moc"
