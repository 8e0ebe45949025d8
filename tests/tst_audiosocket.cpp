// The local audio socket with clients that read, do not read, leave and come in crowds.

#include "player/audioclient.h"
#include "player/audioserver.h"
#include "sim/board.h"

#include <QDir>
#include <QFile>
#include <QLocalSocket>
#include <QSignalSpy>
#include <QTest>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

namespace {

using Socket = std::unique_ptr<QLocalSocket>;

Socket connectClient()
{
    auto socket = std::make_unique<QLocalSocket>();
    socket->connectToServer(QStringLiteral("bluetooth"));
    return socket->waitForConnected(2000) ? std::move(socket) : nullptr;
}

/// A stream socket pair: an AudioClient on one end, a descriptor on the other.
struct Pair {
    Pair()
    {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
            qFatal("socketpair");
        client = std::make_unique<AudioClient>(FileDescriptor(ends[0]));
        far = FileDescriptor(ends[1]);
        ::fcntl(far.get(), F_SETFL, O_NONBLOCK);
    }
    /// What has arrived since the last call, with the event loop running until nothing more comes; `ended` says whether
    /// the near end has closed.
    QByteArray hear(bool *ended = nullptr)
    {
        QByteArray all;
        char buffer[65536];
        for (;;) {
            const ssize_t size = ::read(far.get(), buffer, sizeof buffer);
            if (size > 0) {
                all.append(buffer, static_cast<int>(size));
                continue;
            }
            if (ended)
                *ended = size == 0;
            if (size == 0 || !sim::waitFor([this] { return readable(); }, 200))
                return all;
        }
    }
    bool readable() const
    {
        pollfd poller{far.get(), POLLIN, 0};
        return ::poll(&poller, 1, 0) > 0;
    }
    std::unique_ptr<AudioClient> client;
    FileDescriptor far;
};

/// Packet `number` of a stream, told apart by its bytes.
QByteArray packet(int number)
{
    return QByteArray(2560, static_cast<char>(number % 251));
}

} // namespace

class AudioSocketTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void writesLeaveInTheSameTurn();
    void slowClientGetsItsBacklogThenCurrentAudio();
    void endDropsWhatWasOnlyKept();
    void backlogOfAnyPaceIsInOrder();
    void goneClientIsHarmless();
    void clientsWaitInOrder();
    void clientsOfThisTurnAreCollected();
    void writesOfClientsNeverBlock();
    void clientThatOnlyListensHears();
    void deadConnectionsMakeRoom();
    void whatStandsInTheWayIsNamed();
};

void AudioSocketTest::writesLeaveInTheSameTurn()
{
    Pair pair;
    QCOMPARE(pair.client->write(packet(1)), 2560);
    char received[4096];
    QCOMPARE(::read(pair.far.get(), received, sizeof received), ssize_t{2560}); // no event loop in between
    QCOMPARE(pair.client->write("", 0), 0);
    QVERIFY(!pair.readable());
}

void AudioSocketTest::slowClientGetsItsBacklogThenCurrentAudio()
{
    Pair pair;
    constexpr int Packets = 3000; // 7.5 MiB
    for (int i = 0; i < Packets; ++i)
        QCOMPARE(pair.client->write(packet(i)), 2560);
    const QByteArray heard = pair.hear();
    QVERIFY(heard.size() >= AudioClient::BacklogLimit - 2560);
    QVERIFY(heard.size() <= AudioClient::BacklogLimit + 512 * 1024); // and what the kernel's buffer took before
    QCOMPARE(heard.size() % 2560, 0);
    for (int i = 0; i < heard.size() / 2560; ++i)
        QVERIFY2(heard.mid(i * 2560, 2560) == packet(i), qPrintable(QString::number(i)));

    pair.client->write(packet(7));
    QVERIFY(pair.hear() == packet(7));
}

void AudioSocketTest::endDropsWhatWasOnlyKept()
{
    Pair pair;
    QByteArray sent;
    for (int i = 0; i < 400; ++i) {
        sent += packet(i);
        pair.client->write(packet(i));
    }
    pair.client.reset();
    bool ended = false;
    const QByteArray heard = pair.hear(&ended);
    QVERIFY(ended);
    QVERIFY(!heard.isEmpty() && heard.size() < sent.size() / 2); // what the kernel had taken
    QVERIFY(sent.startsWith(heard));
}

/// The ring goes round many times, and is read and written in steps that do not divide it.
void AudioSocketTest::backlogOfAnyPaceIsInOrder()
{
    Pair pair;
    QByteArray sent;
    QByteArray heard;
    char buffer[30011];
    for (int i = 0; heard.size() < 3 * AudioClient::BacklogLimit; ++i) {
        const QByteArray bytes(40009, static_cast<char>(i % 251));
        if (sent.size() - heard.size() < AudioClient::BacklogLimit - bytes.size()) {
            QCOMPARE(pair.client->write(bytes), bytes.size());
            sent += bytes;
        }
        QCoreApplication::processEvents();
        const ssize_t size = ::read(pair.far.get(), buffer, sizeof buffer);
        if (size > 0)
            heard.append(buffer, static_cast<int>(size));
    }
    heard += pair.hear();
    QVERIFY(heard == sent);
    QCOMPARE(pair.client->write(QByteArray(AudioClient::BacklogLimit + 1, 'x')), qint64{-1});
    QVERIFY(pair.client->isConnected());
}

void AudioSocketTest::goneClientIsHarmless()
{
    Pair pair;
    pair.far.reset();
    for (int i = 0; i < 10; ++i)
        pair.client->write(packet(i));

    Pair leaving; // leaves with a backlog waiting
    for (int i = 0; i < 400; ++i)
        leaving.client->write(packet(i));
    leaving.far.reset();
    AudioClient *gone = leaving.client.get();
    QVERIFY(sim::waitFor([gone] { return gone->write("x", 1) < 0; }));
}

void AudioSocketTest::clientsWaitInOrder()
{
    AudioServer server;
    QVERIFY(!server.nextClient());
    const Socket first = connectClient();
    const Socket second = connectClient();
    QVERIFY(first && second);

    std::unique_ptr<AudioClient> client;
    QVERIFY(sim::waitFor([&] { return (client = server.nextClient()) != nullptr; }));
    client->write("one");
    std::unique_ptr<AudioClient> next;
    QVERIFY(sim::waitFor([&] { return (next = server.nextClient()) != nullptr; }));
    next->write("two");
    QVERIFY(!server.nextClient());
    QVERIFY(sim::waitFor([&] { return first->bytesAvailable() == 3 && second->bytesAvailable() == 3; }));
    QCOMPARE(first->readAll(), QByteArray("one"));
    QCOMPARE(second->readAll(), QByteArray("two"));
    client.reset();
    QVERIFY(sim::waitFor([&] { return first->state() == QLocalSocket::UnconnectedState; }));
}

void AudioSocketTest::clientsOfThisTurnAreCollected()
{
    AudioServer server;
    server.collect(); // nobody there
    const Socket gone = connectClient();
    const Socket here = connectClient();
    QVERIFY(gone && here);
    gone->abort();
    QVERIFY(!server.nextClient()); // no event has been handled since they came
    server.collect();
    const auto client = server.nextClient();
    QVERIFY(client && !server.nextClient()); // the one that has gone is passed over
    QCOMPARE(client->write("x"), qint64{1});
    QVERIFY(sim::waitFor([&] { return here->bytesAvailable() == 1; }));
}

void AudioSocketTest::writesOfClientsNeverBlock()
{
    AudioServer server;
    const Socket socket = connectClient();
    QVERIFY(socket);
    const auto says = [&] { // several times what a socket holds
        socket->write(QByteArray(1024 * 1024, 'x'));
        return sim::waitFor([&] { return socket->bytesToWrite() == 0; });
    };
    QVERIFY(says()); // while it waits
    const auto client = server.nextClient();
    QVERIFY(client && says());
    client->write("x");
    QVERIFY(sim::waitFor([&] { return socket->bytesAvailable() == 1; }));
}

void AudioSocketTest::clientThatOnlyListensHears()
{
    AudioServer server;
    const Socket socket = connectClient();
    QVERIFY(socket);
    ::shutdown(static_cast<int>(socket->socketDescriptor()), SHUT_WR);
    std::unique_ptr<AudioClient> client;
    QVERIFY(sim::waitFor([&] { return (client = server.nextClient()) != nullptr; }));
    QSignalSpy ended(client.get(), &AudioClient::disconnected);
    QVERIFY(sim::waitFor([&] { return ended.size() == 1; }));
    client->write("x");
    QVERIFY(sim::waitFor([&] { return socket->bytesAvailable() == 1; }));
}

void AudioSocketTest::deadConnectionsMakeRoom()
{
    AudioServer server;
    const Socket early = connectClient();
    for (int i = 0; i < 200; ++i) {
        QVERIFY(connectClient()); // and leaves at once
        QCoreApplication::processEvents();
    }
    const Socket late = connectClient();
    QVERIFY(early && late);
    QVERIFY(sim::waitFor([&] {
        if (const auto client = server.nextClient())
            client->write("hello");
        return late->bytesAvailable() > 0;
    }));
    QVERIFY(sim::waitFor([&] { return early->bytesAvailable() > 0; }));
}

void AudioSocketTest::whatStandsInTheWayIsNamed()
{
    const QString path = QDir::tempPath() + QStringLiteral("/bluetooth");
    QFile::remove(path);
    QVERIFY(QDir().mkdir(path)); // nor can one of a stranger's be removed, from a sticky folder
    QTest::ignoreMessage(
        QtWarningMsg,
        qPrintable(QStringLiteral("0No audio socket %1: QLocalServer::listen: Address in use").arg(path)));
    AudioServer server;
    QVERIFY(!connectClient());
    server.collect();
    QVERIFY(!server.nextClient());
    QVERIFY(QDir().rmdir(path));
    QVERIFY(sim::waitFor([] { return connectClient() != nullptr; })); // it is tried again
}

QTEST_GUILESS_MAIN(AudioSocketTest)
#include "tst_audiosocket.moc"
