// SPDX-License-Identifier: MIT
// Faults of the board: an unwritable log, a missing name file, no free descriptors, a faulty player.

#include "streamingboard.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

using namespace boardtest;

namespace {

/// Creates "/dev/log" in the sandbox, instead of an earlier one.
FileDescriptor systemLog()
{
    FileDescriptor log(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrcpy(address.sun_path, "/dev/log");
    QFile::remove(QStringLiteral("/dev/log"));
    if (::bind(log.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        qFatal("/dev/log: %s", qPrintable(qt_error_string()));
    return log;
}

/// Returns the oldest unread message, or an empty one.
QByteArray readMessage(const FileDescriptor &log)
{
    QByteArray message(64 * 1024, '\0');
    const ssize_t size = ::recv(log.get(), message.data(), static_cast<size_t>(message.size()), 0);
    return message.left(static_cast<int>(std::max(size, ssize_t{0})));
}

} // namespace

class HostFaultTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void unwritableLog_data();
    void unwritableLog();
    void systemLogRestarts();
    void noDescriptorsForClients();
    void faultyPlayers();
};

void HostFaultTest::unwritableLog_data()
{
    QTest::addColumn<QString>("redirection");
    QTest::newRow("everything closed") << "0<&- 1>&- 2>&-";
    QTest::newRow("full disk") << "1>/dev/full 2>/dev/full";
    QTest::newRow("pipe that nobody reads") << "2>/tmp/pipe";
    QTest::newRow("pipe whose reader has left") << "2>/tmp/pipe";
}

void HostFaultTest::unwritableLog()
{
    QFETCH(QString, redirection);
    FileDescriptor reader;
    if (redirection.contains(QStringLiteral("pipe"))) {
        QFile::remove(QStringLiteral("/tmp/pipe"));
        QCOMPARE(::mkfifo("/tmp/pipe", 0600), 0);
        reader = FileDescriptor(::open("/tmp/pipe", O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        QVERIFY(::fcntl(reader.get(), F_SETPIPE_SZ, 4096) >= 0);
    }
    ConfiguredBoard b(Traced, redirection);
    QVERIFY(b.ready);
    if (QByteArray(QTest::currentDataTag()).endsWith("left"))
        reader.reset();
    QVERIFY(b.playsNewStream());
    b.phone.disconnect();
    WAIT_UNTIL(b.board.player.targets().last() == notification(true, false, "", false));
}

void HostFaultTest::systemLogRestarts()
{
    if (QFile::exists(QStringLiteral("/dev/log")))
        QSKIP("this machine has a syslog of its own");
    ConfiguredBoard b({QStringLiteral("--debug"), QStringLiteral("9")});
    QVERIFY(b.ready); // without "/dev/log"
    FileDescriptor log = systemLog();
    QVERIFY(b.playsNewStream()); // logs many more lines than the socket's buffer holds
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < 50; ++i)
        b.board.control.call(QStringLiteral("IsAdapterPresent"));
    QVERIFY2(clock.elapsed() < 2500, "the daemon waits for the log at every line"); // 100 ms each
    QVERIFY(!readMessage(log).isEmpty());
    const auto isRead = [&] {
        b.board.control.call(QStringLiteral("SelectBluetooth"));
        QByteArray message = readMessage(log);
        while (!message.isEmpty() && !message.contains("kado-bt: SelectBluetooth():"))
            message = readMessage(log);
        return !message.isEmpty();
    };
    WAIT_UNTIL(isRead());
    log.reset(); // no reader
    const int descriptors = settledDescriptors(b.board.daemon);
    for (int i = 0; i < 100; ++i)
        b.board.control.call(QStringLiteral("SelectBluetooth"));
    QVERIFY(settledDescriptors(b.board.daemon) <= descriptors + sim::SparePlayerSockets);
    log = systemLog();
    WAIT_UNTIL(isRead());
    QFile::remove(QStringLiteral("/dev/log"));
}

void HostFaultTest::noDescriptorsForClients()
{
#ifdef KADO_SANITIZED
    QSKIP("the sanitizer's own checks of an object take a pipe");
#endif
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    const QList<QByteArray> sent = packets(0.3);
    QVERIFY(b.send(sent));
    QVERIFY(b.hears(sim::decodeSbc(sent)));

    const auto pid = static_cast<pid_t>(b.board.daemon.process().processId());
    rlimit usual{};
    QCOMPARE(::prlimit(pid, RLIMIT_NOFILE, nullptr, &usual), 0);
    settledDescriptors(b.board.daemon);
    rlimit scarce{0, usual.rlim_max};
    while (QFileInfo(QStringLiteral("/proc/%1/fd/%2").arg(pid).arg(scarce.rlim_cur)).isSymLink())
        ++scarce.rlim_cur;
    QCOMPARE(::prlimit(pid, RLIMIT_NOFILE, &scarce, nullptr), 0);
    const int before = b.board.daemon.cpuMs();
    sim::Player late;
    for (int round = 0; round < 3; ++round) { // the daemon retries once a second
        WAIT_UNTIL(late.connectAudio());      // succeeds, because the kernel queues the connection
        WAIT_UNTIL(!late.audioConnected());
    }
    const int used = b.board.daemon.cpuMs() - before;
    QVERIFY2(used < 200, qPrintable(QString::number(used)));
    QVERIFY(b.send(sent)); // the connected client still receives audio
    QVERIFY(b.hears(sim::decodeSbc(sent + sent)));

    QCOMPARE(::prlimit(pid, RLIMIT_NOFILE, &usual, nullptr), 0);
    QVERIFY(late.connectAudio());
    WAIT_UNTIL(b.phone.send(sent.constFirst()) && !late.heard().isEmpty());
    QVERIFY(b.playsNewStream());
}

/// A faulty player does no harm, even with many requests. After a restart it receives the present state.
void HostFaultTest::faultyPlayers()
{
    using Behaviour = sim::Player::Behaviour;
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone anna(board.bluez, PhonePath, QStringLiteral("Anna"));
    sim::Phone bob(board.bluez, OtherPhonePath, QStringLiteral("Bob"));
    const int descriptors = settledDescriptors(board.daemon);
    const auto manyRequests = [&] {
        for (int i = 0; i < 50; ++i) {
            anna.connect();
            anna.disconnect();
        }
        anna.connect();
        return sim::waitFor([&] { return anna.authorize(); });
    };
    for (const Behaviour behaviour :
         {Behaviour::Refuse, Behaviour::NeverAnswer, Behaviour::Garbage, Behaviour::CloseEarly}) {
        board.player.setBehaviour(behaviour);
        QVERIFY(manyRequests());
        board.player.stopServing();
        QVERIFY(manyRequests()); // the player is down
        QVERIFY(board.daemon.openDescriptors() <= descriptors + sim::SparePlayerSockets);

        board.player.setBehaviour(Behaviour::Answer);
        board.player.clearRequests();
        QVERIFY(board.player.serve()); // the player is restarted
        anna.disconnect();
        bob.connect();
        WAIT_UNTIL(board.player.targets().contains(notification(true, true, "Bob", false)));
        bob.disconnect();
        WAIT_UNTIL(board.player.targets().last() == notification(true, false, "", false));
    }
    QVERIFY(settledDescriptors(board.daemon) <= descriptors + sim::SparePlayerSockets);
}

QTEST_GUILESS_MAIN(HostFaultTest)
#include "tst_faulthost.moc"
