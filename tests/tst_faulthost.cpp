// What the board itself may be short of: a log that can be written, a name file, descriptors, a player that answers.

#include "board/speakername.h"
#include "streamingboard.h"

#include <QDir>
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

const QStringList Traced{QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")};
const QStringList TracedToSyslog{QStringLiteral("--debug"), QStringLiteral("9")};

/// "/dev/log" of the sandbox, gone with this object.
class SystemLog {
public:
    SystemLog() : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrcpy(address.sun_path, "/dev/log");
        if (::bind(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            qFatal("/dev/log: %s", qPrintable(qt_error_string()));
    }
    ~SystemLog() { QFile::remove(QStringLiteral("/dev/log")); }
    SystemLog(const SystemLog &) = delete;
    SystemLog &operator=(const SystemLog &) = delete;

    /// The messages that wait.
    QList<QByteArray> read()
    {
        QList<QByteArray> messages;
        QByteArray message(64 * 1024, '\0');
        for (;;) {
            const ssize_t size = ::recv(socket_.get(), message.data(), static_cast<size_t>(message.size()), 0);
            if (size < 0)
                return messages;
            messages << message.left(static_cast<int>(size));
        }
    }
    bool receives(const char *text)
    {
        return sim::waitFor([&] {
            const QList<QByteArray> messages = read();
            return std::any_of(messages.begin(), messages.end(),
                               [&](const QByteArray &message) { return message.contains(text); });
        });
    }

private:
    FileDescriptor socket_;
};

} // namespace

class HostFaultTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void logThatCannotBeWritten_data();
    void logThatCannotBeWritten();
    void systemLogThatStopsReading();
    void systemLogThatStartsAgain();
    void nameFileOfAnyKind_data();
    void nameFileOfAnyKind();
    void noDescriptorsForClients();
    void playerOfAnyKind_data();
    void playerOfAnyKind();
};

void HostFaultTest::logThatCannotBeWritten_data()
{
    QTest::addColumn<QString>("redirection");
    QTest::newRow("standard error closed") << "2>&-";
    QTest::newRow("everything closed") << "0<&- 1>&- 2>&-";
    QTest::newRow("full disk") << "1>/dev/full 2>/dev/full";
    QTest::newRow("pipe that nobody reads") << "2>/tmp/pipe";
    QTest::newRow("pipe whose reader has left") << "2>/tmp/pipe";
}

void HostFaultTest::logThatCannotBeWritten()
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
    QVERIFY(b.playsAnother());
    b.phone.disconnect();
    WAIT_UNTIL(b.board.player.targets().last() == notification(true, false, "", false));
}

void HostFaultTest::systemLogThatStopsReading()
{
    if (QFile::exists(QStringLiteral("/dev/log")))
        QSKIP("this machine has a syslog of its own");
    SystemLog log;
    ConfiguredBoard b(TracedToSyslog);
    QVERIFY(b.ready);
    QVERIFY(b.playsAnother()); // many more lines than the socket holds
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < 50; ++i)
        b.board.control.call(QStringLiteral("IsAdapterPresent"));
    QVERIFY2(clock.elapsed() < 2500, "the log is waited for again and again"); // 100 ms a line
    const QList<QByteArray> kept = log.read();
    QVERIFY(kept.constFirst().contains("start kado-bt"));
    b.board.control.call(QStringLiteral("SelectBluetooth"));
    QVERIFY(log.receives("kado-bt: SelectBluetooth(): \"http")); // it reads again
}

void HostFaultTest::systemLogThatStartsAgain()
{
    if (QFile::exists(QStringLiteral("/dev/log")))
        QSKIP("this machine has a syslog of its own");
    sim::Board board;
    QVERIFY(board.startDaemon({})); // without any
    for (int round = 0; round < 2; ++round) {
        SystemLog log;
        board.control.call(QStringLiteral("SelectBluetooth"));
        QVERIFY(log.receives("kado-bt: SelectBluetooth(): no transport"));
    }
    const int descriptors = settledDescriptors(board.daemon);
    for (int i = 0; i < 100; ++i)
        board.control.call(QStringLiteral("SelectBluetooth"));
    QVERIFY(settledDescriptors(board.daemon) <= descriptors + sim::SparePlayerSockets);
}

void HostFaultTest::nameFileOfAnyKind_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("expected");
    QByteArray bytes;
    for (int byte = 1; byte < 0x100; ++byte) {
        if (byte != '\n')
            bytes += static_cast<char>(byte);
    }
    QTest::newRow("a directory") << QByteArray() << "BlueZ 5.66";
    QTest::newRow("every byte") << bytes << QString::fromLatin1(bytes) + QStringLiteral(" BT");
    QTest::newRow("1 MiB without a line feed")
        << QByteArray(1024 * 1024, '\xFC') << QString(64 * 1024 - 1, QChar(0xFC)) + QStringLiteral(" BT");
}

void HostFaultTest::nameFileOfAnyKind()
{
    QFETCH(QByteArray, content);
    sim::Board board;
    sim::removePlayerName();
    if (content.isEmpty())
        QVERIFY(QDir().mkpath(QString::fromLatin1(SpeakerNameFile)));
    else
        sim::writePlayerName(content);
    QVERIFY(board.startDaemon());
    QTEST(board.bluez.property(Hci0, QStringLiteral("org.bluez.Adapter1"), QStringLiteral("Alias")).toString(),
          "expected");
    QDir().rmdir(QString::fromLatin1(SpeakerNameFile));
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
    sim::Player late;
    QVERIFY(late.connectAudio()); // the kernel lets it in
    WAIT_UNTIL(!late.audioConnected());
    const int before = b.board.daemon.cpuMs();
    QTest::qWait(1500); // what is measured is what happens while nothing can happen
    const int used = b.board.daemon.cpuMs() - before;
    qInfo("CPU in 1.5 s: %d ms", used);
    QVERIFY(used < 100);
    QVERIFY(b.send(sent)); // the client that it has hears on
    QVERIFY(b.hears(sim::decodeSbc(sent + sent)));

    QCOMPARE(::prlimit(pid, RLIMIT_NOFILE, &usual, nullptr), 0);
    const QByteArray &packet = sent.constFirst();
    QVERIFY(late.connectAudio());
    WAIT_UNTIL(b.phone.send(packet) && !late.heard().isEmpty());
    QVERIFY(b.playsAnother());
}

void HostFaultTest::playerOfAnyKind_data()
{
    using Behaviour = sim::Player::Behaviour;
    QTest::addColumn<int>("behaviour");
    QTest::newRow("refuses") << static_cast<int>(Behaviour::Refuse);
    QTest::newRow("never answers") << static_cast<int>(Behaviour::NeverAnswer);
    QTest::newRow("answers garbage") << static_cast<int>(Behaviour::Garbage);
    QTest::newRow("closes in the middle") << static_cast<int>(Behaviour::CloseEarly);
    QTest::newRow("is down") << -1;
}

/// However it behaves, and for however many requests: it hurts nobody, and once it is well it hears how things are.
void HostFaultTest::playerOfAnyKind()
{
    QFETCH(int, behaviour);
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    const int descriptors = settledDescriptors(board.daemon);
    if (behaviour < 0)
        board.player.stopServing();
    else
        board.player.behave(static_cast<sim::Player::Behaviour>(behaviour));
    for (int i = 0; i < 100; ++i) {
        phone.connect();
        phone.disconnect();
    }
    phone.connect();
    WAIT_UNTIL(phone.authorize());
    QVERIFY(board.daemon.openDescriptors() <= descriptors + sim::SparePlayerSockets);

    board.player.stopServing(); // it is started again
    board.player.behave(sim::Player::Behaviour::Answer);
    QVERIFY(board.player.serve());
    sim::Phone other(board.bluez, Hci0 + QStringLiteral("/dev_00_AA_01_02_00_42"), QStringLiteral("Bob"));
    phone.disconnect();
    other.connect();
    WAIT_UNTIL(board.player.targets().last() == notification(true, true, "Bob", false));
    QVERIFY(settledDescriptors(board.daemon) <= descriptors + sim::SparePlayerSockets);
}

QTEST_GUILESS_MAIN(HostFaultTest)
#include "tst_faulthost.moc"
