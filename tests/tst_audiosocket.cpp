// SPDX-License-Identifier: MIT
// The local audio socket with clients that read, do not read, disconnect, or connect in large numbers.

#include "player/audioclient.h"
#include "player/audioserver.h"
#include "waituntil.h"

#include <QDir>
#include <QFile>
#include <QLocalSocket>

#include <algorithm>
#include <array>
#include <fcntl.h>
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
    /// Reads up to `maxSize` bytes without waiting. Returns all bytes received so far.
    const QByteArray &receive(int maxSize = 65536)
    {
        std::array<char, 65536> bytes{};
        const ssize_t size = ::read(far.get(), bytes.data(), std::min(static_cast<size_t>(maxSize), bytes.size()));
        return received.append(bytes.data(), std::max(0, static_cast<int>(size)));
    }
    std::unique_ptr<AudioClient> client;
    FileDescriptor far;
    QByteArray received;
};

/// Returns packet `number` of a stream. Its bytes identify it.
QByteArray packet(int number)
{
    return QByteArray(2560, static_cast<char>(number % 251));
}

} // namespace

class AudioSocketTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void writesAreImmediate();
    void slowClientGetsItsBacklogThenCurrentAudio();
    void backlogKeepsOrder();
    void disconnectedClientIsHarmless();
    void clientsWaitInOrder();
    void clientInputIsDiscarded();
    void deadConnectionsMakeRoom();
    void blockedSocketPathIsReported();
};

void AudioSocketTest::writesAreImmediate()
{
    Pair pair;
    QCOMPARE(pair.client->write(packet(1)), 2560);
    QVERIFY(pair.receive() == packet(1)); // without the event loop
}

void AudioSocketTest::slowClientGetsItsBacklogThenCurrentAudio()
{
    Pair pair;
    constexpr int Packets = 3000; // 7.5 MiB
    for (int i = 0; i < Packets; ++i)
        QCOMPARE(pair.client->write(packet(i)), 2560);
    pair.client->write("x"); // dropped, although it would fit
    // Writes are dropped until the client has received the whole backlog.
    const QByteArray current(100, '\xFC');
    WAIT_UNTIL(pair.client->write(current) == current.size() && pair.receive().endsWith(current));
    const auto kept = pair.received.indexOf(current);
    QVERIFY(kept >= AudioClient::BacklogLimit - 2560);
    QVERIFY(kept <= AudioClient::BacklogLimit + 512 * 1024); // with the kernel's buffer
    QCOMPARE(kept % 2560, 0);
    for (int i = 0; i < kept / 2560; ++i)
        QVERIFY2(pair.received.mid(i * 2560, 2560) == packet(i), qPrintable(QString::number(i)));
}

/// Wraps the ring buffer many times, with reads and writes that do not divide its size.
void AudioSocketTest::backlogKeepsOrder()
{
    Pair pair;
    QByteArray sent;
    for (int i = 0; pair.received.size() < 3 * AudioClient::BacklogLimit; ++i) {
        const QByteArray bytes(40009, static_cast<char>(i % 251));
        if (sent.size() - pair.received.size() < AudioClient::BacklogLimit - bytes.size()) {
            QCOMPARE(pair.client->write(bytes), bytes.size());
            sent += bytes;
        }
        QCoreApplication::processEvents();
        pair.receive(30011);
    }
    WAIT_UNTIL(pair.receive().size() >= sent.size());
    QVERIFY(pair.received == sent);
    QCOMPARE(pair.client->write(QByteArray(AudioClient::BacklogLimit + 1, 'x')), qint64{-1});
}

void AudioSocketTest::disconnectedClientIsHarmless()
{
    Pair pair; // disconnects with a backlog
    for (int i = 0; i < 400; ++i)
        pair.client->write(packet(i));
    pair.far.reset();
    WAIT_UNTIL(pair.client->write("x", 1) < 0);
    QVERIFY(!pair.client->isConnected());
}

/// Skips clients that have disconnected. collect() finds clients before the event loop does.
void AudioSocketTest::clientsWaitInOrder()
{
    AudioServer server;
    server.acceptPending(); // no client yet
    const Socket first = connectClient();
    const Socket gone = connectClient();
    const Socket second = connectClient();
    QVERIFY(first && gone && second);
    gone->abort();
    QVERIFY(!server.nextClient()); // the event loop has not run since they connected
    server.acceptPending();
    std::unique_ptr<AudioClient> client = server.nextClient();
    const std::unique_ptr<AudioClient> next = server.nextClient();
    QVERIFY(client && next && !server.nextClient());
    client->write("one");
    next->write("two");
    WAIT_UNTIL(first->bytesAvailable() == 3 && second->bytesAvailable() == 3);
    QCOMPARE(first->readAll(), QByteArray("one"));
    QCOMPARE(second->readAll(), QByteArray("two"));
    client.reset();
    WAIT_UNTIL(first->state() == QLocalSocket::UnconnectedState);
}

void AudioSocketTest::clientInputIsDiscarded()
{
    AudioServer server;
    const Socket socket = connectClient();
    QVERIFY(socket);
    const auto canWrite = [&] { // several times the size of the socket's buffer
        socket->write(QByteArray(1024 * 1024, 'x'));
        return sim::waitFor([&] { return socket->bytesToWrite() == 0; });
    };
    QVERIFY(canWrite()); // before nextClient()
    const auto client = server.nextClient();
    QVERIFY(client && canWrite());
    bool ended = false;
    QObject::connect(client.get(), &AudioClient::disconnected, this, [&] { ended = true; });
    ::shutdown(static_cast<int>(socket->socketDescriptor()), SHUT_WR);
    WAIT_UNTIL(ended);
    client->write("x"); // the client still reads
    WAIT_UNTIL(socket->bytesAvailable() == 1);
}

void AudioSocketTest::deadConnectionsMakeRoom()
{
    AudioServer server;
    const Socket early = connectClient();
    for (int i = 0; i < 200; ++i) {
        QVERIFY(connectClient()); // disconnects at once
        QCoreApplication::processEvents();
    }
    const Socket late = connectClient();
    QVERIFY(early && late);
    const auto bothReceive = [&] {
        if (const auto client = server.nextClient())
            client->write("hello");
        return early->bytesAvailable() > 0 && late->bytesAvailable() > 0;
    };
    WAIT_UNTIL(bothReceive());
}

void AudioSocketTest::blockedSocketPathIsReported()
{
    const QString path = QDir::tempPath() + QStringLiteral("/bluetooth");
    QFile::remove(path);
    QVERIFY(QDir().mkdir(path)); // cannot be removed, like another user's file in a sticky folder
    QTest::ignoreMessage(
        QtWarningMsg,
        qPrintable(QStringLiteral("0No audio socket %1: QLocalServer::listen: Address in use").arg(path)));
    AudioServer server;
    QVERIFY(!connectClient());
    server.acceptPending();
    QVERIFY(!server.nextClient());
    QVERIFY(QDir().rmdir(path));
    WAIT_UNTIL(connectClient() != nullptr); // after a retry
}

QTEST_GUILESS_MAIN(AudioSocketTest)
#include "tst_audiosocket.moc"
