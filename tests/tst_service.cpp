// What a board's bus policy, users and unit let whom do. The daemon is run by scripts/as-service, on a bus with the
// shipped policy and with the users of tests/board/users.conf: see scripts/check-service.

#include "boardtest.h"
#include "control/names.h"

#include <QFile>
#include <QFileInfo>

#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

using namespace boardtest;

namespace {

const char *const AudioSocket = "/tmp/bluetooth";

struct Ending {
    int status = -1;
    QString output;
};

/// Runs a command as `user`, with the user's groups, while the board's bus and BlueZ go on.
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

sockaddr_un audioAddress()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrcpy(address.sun_path, AudioSocket);
    return address;
}

/// Connects to the audio socket as `user`: 0, or the error.
int connectAudioAs(const char *user)
{
    const passwd *account = ::getpwnam(user);
    if (!account)
        qFatal("no user %s", user);
    const pid_t child = ::fork();
    if (child == 0) {
        if (::initgroups(user, account->pw_gid) != 0 || ::setgid(account->pw_gid) != 0
            || ::setuid(account->pw_uid) != 0)
            ::_exit(255);
        const sockaddr_un address = audioAddress();
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        ::_exit(::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ? 0 : errno);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WEXITSTATUS(status);
}

/// Leaves a socket where the audio socket belongs, as a process of `user` would.
void leaveSocketOf(const char *user)
{
    QFile::remove(QLatin1String(AudioSocket));
    const sockaddr_un address = audioAddress();
    const FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const passwd *account = ::getpwnam(user);
    if (::bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0
        || ::chown(AudioSocket, account->pw_uid, account->pw_gid) != 0)
        qFatal("no socket of %s", user);
}

/// What the unit has root run first: the command behind "ExecStartPre=-+".
QStringList commandBeforeStart()
{
    QFile unit(qEnvironmentVariable("KADO_SERVICE") + QStringLiteral("/kado-bt.service"));
    const QByteArray setting = "ExecStartPre=-+";
    if (unit.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> lines = unit.readAll().split('\n');
        for (const QByteArray &line : lines) {
            if (line.startsWith(setting))
                return QProcess::splitCommand(QString::fromUtf8(line.mid(setting.size())));
        }
    }
    return {QStringLiteral("true")};
}

QString uniqueNameOf(const QDBusConnection &connection, const QString &name)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetNameOwner"));
    return sim::callAndWait(connection, call << name).arguments().value(0).toString();
}

} // namespace

class ServiceTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void policy_data();
    void policy();
    void signalsOfStrangersStayOutside();
    void blueZReachesItsObjects();
    void process();
    void audioSocketIsForTheGroup();
    void socketInUseStays();
    void leftoverSocketIsReplaced_data();
    void leftoverSocketIsReplaced();

private:
    std::unique_ptr<sim::Board> board_;
};

void ServiceTest::initTestCase()
{
    if (!qEnvironmentVariableIsSet("KADO_SERVICE"))
        QSKIP("run by scripts/check-service");
    board_ = std::make_unique<sim::Board>();
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", board_->bus.address().toLatin1()); // for what the unit runs
    QVERIFY2(board_->startDaemon(), qPrintable(board_->daemon.logTexts().join('\n')));
}

void ServiceTest::policy_data()
{
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("call");
    QTest::addColumn<bool>("allowed");

    const struct {
        const char *what;
        const char *call; ///< destination, path, member and arguments of a call
        QStringList allowed;
        QStringList refused;
    } rows[] = {
        {"own the name",
         "org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus.RequestName string:org.kadobt uint32:4",
         {"kado-bt"},
         {"root", "player", "stranger"}},
        {"command", "org.kadobt /kadobt org.kadobt.commands.IsAdapterPresent", {"root", "player"}, {"stranger"}},
        {"command, by the unique name",
         "%1 /kadobt org.kadobt.commands.IsAdapterPresent",
         {"root", "player"},
         {"stranger"}},
        {"read a property",
         "org.kadobt /kadobt org.freedesktop.DBus.Properties.Get string:org.kadobt.commands string:Name",
         {"root", "player"},
         {"stranger"}},
        {"introspect",
         "org.kadobt /kadobt org.freedesktop.DBus.Introspectable.Introspect",
         {"root", "player"},
         {"stranger"}},
        {"ping", "org.kadobt /kadobt org.freedesktop.DBus.Peer.Ping", {}, {"root", "player", "stranger"}},
        {"call the agent",
         "org.kadobt /Nodera/BluetoothAgent org.bluez.Agent1.Release",
         {},
         {"root", "player", "stranger"}},
        {"call the agent, by the unique name",
         "%1 /Nodera/BluetoothAgent org.bluez.Agent1.Release",
         {},
         {"root", "player", "stranger"}},
        {"call an endpoint",
         "org.kadobt /endpoint/0 org.bluez.MediaEndpoint1.Release",
         {},
         {"root", "player", "stranger"}},
        {"call BlueZ",
         "org.bluez / org.freedesktop.DBus.ObjectManager.GetManagedObjects",
         {"root", "kado-bt"},
         {"player", "stranger"}},
    };
    for (const auto &row : rows) {
        for (const QString &user : row.allowed)
            QTest::addRow("%s may %s", qPrintable(user), row.what) << user << row.call << true;
        for (const QString &user : row.refused)
            QTest::addRow("%s may not %s", qPrintable(user), row.what) << user << row.call << false;
    }
}

void ServiceTest::policy()
{
    QFETCH(QString, user);
    QFETCH(QString, call);
    QFETCH(bool, allowed);

    QStringList words = call.replace(QLatin1String("%1"), uniqueNameOf(board_->bluez.connection(), control::Service))
                            .split(QLatin1Char(' '));
    const Ending ending = runAs(
        user,
        QStringList{"dbus-send", "--bus=" + board_->bus.address(), "--print-reply", "--dest=" + words.takeFirst()}
            + words);
    QVERIFY2(ending.status == (allowed ? 0 : 1), qPrintable(ending.output));
    if (!allowed)
        QVERIFY2(ending.output.contains("org.freedesktop.DBus.Error.AccessDenied"), qPrintable(ending.output));
}

void ServiceTest::signalsOfStrangersStayOutside()
{
    // A refusal is seen by a monitor alone: a signal has no reply.
    QProcess monitor;
    monitor.start(QStringLiteral("dbus-monitor"), {QStringLiteral("--address"), board_->bus.address()});
    QByteArray seen;
    const auto sees = [&](const char *text) {
        return sim::waitFor([&] {
            seen += monitor.readAll();
            return seen.contains(text);
        });
    };
    QVERIFY(sees("NameLost")); // it has become a monitor
    const QStringList send{QStringLiteral("dbus-send"),       QStringLiteral("--bus=") + board_->bus.address(),
                           QStringLiteral("--type=signal"),   QStringLiteral("--dest=org.kadobt"),
                           QStringLiteral("/org/bluez/hci0"), QStringLiteral("org.bluez.Device1.Forged")};
    QCOMPARE(runAs(QStringLiteral("stranger"), send).status, 0);
    QVERIFY2(sees("member=Forged") && sees("Rejected send message"), seen.constData());
    monitor.terminate();
    monitor.waitForFinished();

    // BlueZ's own arrive.
    sim::Phone phone(board_->bluez, PhonePath, QStringLiteral("Anna"));
    phone.connect();
    WAIT_UNTIL(board_->player.targets().contains(notification(true, true, "Anna", false)));
    phone.disconnect();
    WAIT_UNTIL(board_->player.targets().constLast() == notification(true, false, "", false));
}

void ServiceTest::blueZReachesItsObjects()
{
    QCOMPARE(board_->bluez.callAgent(QStringLiteral("Release"), {}).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(board_->bluez.callEndpoint(0, QStringLiteral("Release"), {}).type(), QDBusMessage::ReplyMessage);
}

void ServiceTest::process()
{
    const QString folder = QStringLiteral("/proc/%1").arg(board_->daemon.process().processId());
    QFile statusFile(folder + "/status");
    QVERIFY(statusFile.open(QIODevice::ReadOnly));
    const QByteArray status = statusFile.readAll();
    const passwd *account = ::getpwnam("kado-bt");
    const QByteArray user = QByteArray::number(account->pw_uid);
    const QByteArray group = QByteArray::number(account->pw_gid);
    const QByteArray lines[] = {
        "Umask:\t0007",
        "Uid:\t" + user + '\t' + user + '\t' + user + '\t' + user,
        "Gid:\t" + group + '\t' + group + '\t' + group + '\t' + group,
        "Groups:\t" + group,
        "CapPrm:\t0000000000000000",
        "CapBnd:\t0000000000000000",
        "NoNewPrivs:\t1",
        "Seccomp:\t2",
    };
    for (const QByteArray &line : lines)
        QVERIFY2(status.contains('\n' + line), status.constData());

    if (runAs("root", {"unshare", "--mount", "true"}).status != 0)
        QSKIP("no mount namespaces here: the rest of the confinement is not tried");
    const auto rootMayWriteThere = [&](const char *path) {
        return runAs("root", {"nsenter", "--mount=" + folder + "/ns/mnt", "touch", path}).status == 0;
    };
    QVERIFY(rootMayWriteThere("/tmp/probe"));
    for (const char *path : {"/probe", "/etc/probe", "/run/probe", "/sys/probe", "/var/data/probe"})
        QVERIFY2(!rootMayWriteThere(path), path);
}

void ServiceTest::audioSocketIsForTheGroup()
{
    QCOMPARE(connectAudioAs("player"), 0);
    QCOMPARE(connectAudioAs("stranger"), EACCES);
}

void ServiceTest::socketInUseStays()
{
    QCOMPARE(runAs(QStringLiteral("root"), commandBeforeStart()).status, 0);
    QCOMPARE(connectAudioAs("player"), 0);
}

void ServiceTest::leftoverSocketIsReplaced_data()
{
    QTest::addColumn<QByteArray>("owner");
    for (const char *owner : {"kado-bt", "root", "stranger"})
        QTest::newRow(owner) << QByteArray(owner);
}

void ServiceTest::leftoverSocketIsReplaced()
{
    QFETCH(QByteArray, owner);
    board_->daemon.stop();
    leaveSocketOf(owner.constData());
    QCOMPARE(connectAudioAs("root"), ECONNREFUSED);
    QCOMPARE(runAs(QStringLiteral("root"), commandBeforeStart()).status, 0);
    QVERIFY(board_->startDaemon());
    QCOMPARE(connectAudioAs("player"), 0);
}

QTEST_GUILESS_MAIN(ServiceTest)
#include "tst_service.moc"
