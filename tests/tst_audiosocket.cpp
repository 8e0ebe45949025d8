// SPDX-License-Identifier: MIT
// The local audio socket with clients that read, do not read, leave and come in crowds.

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
    /// Hears at most so many bytes of what is there now; returns all that was heard.
    const QByteArray &hear(int most = 65536)
    {
        std::array<char, 65536> bytes{};
        const ssize_t size = ::read(far.get(), bytes.data(), std::min(static_cast<size_t>(most), bytes.size()));
        return heard.append(bytes.data(), std::max(0, static_cast<int>(size)));
    }
    std::unique_ptr<AudioClient> client;
    FileDescriptor far;
    QByteArray heard;
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
    void backlogOfAnyPaceIsInOrder();
    void goneClientIsHarmless();
    void clientsWaitInOrder();
    void whatClientsDoWithTheirSideIsForgotten();
    void deadConnectionsMakeRoom();
    void whatStandsInTheWayIsNamed();
};

void AudioSocketTest::writesLeaveInTheSameTurn()
{
    Pair pair;
    QCOMPARE(pair.client->write(packet(1)), 2560);
    QVERIFY(pair.hear() == packet(1)); // no event loop in between
}

void AudioSocketTest::slowClientGetsItsBacklogThenCurrentAudio()
{
    Pair pair;
    constexpr int Packets = 3000; // 7.5 MiB
    for (int i = 0; i < Packets; ++i)
        QCOMPARE(pair.client->write(packet(i)), 2560);
    pair.client->write("x"); // there would be room for it
    // Dropped as well, until it has heard all that was kept.
    const QByteArray current(100, '\xFC');
    WAIT_UNTIL(pair.client->write(current) == current.size() && pair.hear().endsWith(current));
    const auto kept = pair.heard.indexOf(current);
    QVERIFY(kept >= AudioClient::BacklogLimit - 2560);
    QVERIFY(kept <= AudioClient::BacklogLimit + 512 * 1024); // and what the kernel's buffer took before
    QCOMPARE(kept % 2560, 0);
    for (int i = 0; i < kept / 2560; ++i)
        QVERIFY2(pair.heard.mid(i * 2560, 2560) == packet(i), qPrintable(QString::number(i)));
}

/// The ring goes round many times, and is read and written in steps that do not divide it.
void AudioSocketTest::backlogOfAnyPaceIsInOrder()
{
    Pair pair;
    QByteArray sent;
    for (int i = 0; pair.heard.size() < 3 * AudioClient::BacklogLimit; ++i) {
        const QByteArray bytes(40009, static_cast<char>(i % 251));
        if (sent.size() - pair.heard.size() < AudioClient::BacklogLimit - bytes.size()) {
            QCOMPARE(pair.client->write(bytes), bytes.size());
            sent += bytes;
        }
        QCoreApplication::processEvents();
        pair.hear(30011);
    }
    WAIT_UNTIL(pair.hear().size() >= sent.size());
    QVERIFY(pair.heard == sent);
    QCOMPARE(pair.client->write(QByteArray(AudioClient::BacklogLimit + 1, 'x')), qint64{-1});
}

void AudioSocketTest::goneClientIsHarmless()
{
    Pair pair; // leaves with a backlog waiting
    for (int i = 0; i < 400; ++i)
        pair.client->write(packet(i));
    pair.far.reset();
    WAIT_UNTIL(pair.client->write("x", 1) < 0);
    QVERIFY(!pair.client->isConnected());
}

/// Also those that the event loop has not heard of yet; whoever has gone is passed over.
void AudioSocketTest::clientsWaitInOrder()
{
    AudioServer server;
    server.acceptPending(); // nobody there
    const Socket first = connectClient();
    const Socket gone = connectClient();
    const Socket second = connectClient();
    QVERIFY(first && gone && second);
    gone->abort();
    QVERIFY(!server.nextClient()); // no event has been handled since they came
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

void AudioSocketTest::whatClientsDoWithTheirSideIsForgotten()
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
    bool ended = false;
    QObject::connect(client.get(), &AudioClient::disconnected, this, [&] { ended = true; });
    ::shutdown(static_cast<int>(socket->socketDescriptor()), SHUT_WR);
    WAIT_UNTIL(ended);
    client->write("x"); // it listens still
    WAIT_UNTIL(socket->bytesAvailable() == 1);
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
    const auto hear = [&] {
        if (const auto client = server.nextClient())
            client->write("hello");
        return early->bytesAvailable() > 0 && late->bytesAvailable() > 0;
    };
    WAIT_UNTIL(hear());
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
    server.acceptPending();
    QVERIFY(!server.nextClient());
    QVERIFY(QDir().rmdir(path));
    WAIT_UNTIL(connectClient() != nullptr); // it is tried again
}

QTEST_GUILESS_MAIN(AudioSocketTest)
#include "tst_audiosocket.moc"
