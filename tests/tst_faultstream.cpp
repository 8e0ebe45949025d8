// Streams and clients that misbehave, and very many of them: what the daemon keeps of them, and whether it still
// serves.

#include "player/audioserver.h"
#include "streamingboard.h"

#include <QDBusUnixFileDescriptor>
#include <QElapsedTimer>
#include <QLocalSocket>

#include <algorithm>
#include <fcntl.h>
#include <sys/socket.h>

using namespace boardtest;

namespace {

const QString TransportInterface = QStringLiteral("org.bluez.MediaTransport1");
[[maybe_unused]] constexpr int BacklogKib = 4 * 1024 + 512; // what a client that lags may cost
constexpr int Rounds = 1000;
constexpr int FirstRounds = 50; // after them everything has been used once

/// What a process holds.
struct Holdings {
    explicit Holdings(const sim::Daemon &daemon)
        : descriptors(settledDescriptors(daemon)), residentKib(daemon.residentKib())
    {
    }
    int descriptors;
    int residentKib;
};

void compare(const Holdings &first, const Holdings &last)
{
    qInfo("descriptors %d -> %d, resident %d -> %d KiB", first.descriptors, last.descriptors, first.residentKib,
          last.residentKib);
    QVERIFY(last.descriptors <= first.descriptors + sim::SparePlayerSockets);
#ifndef KADO_SANITIZED // which keeps what is freed
    QVERIFY(last.residentKib - first.residentKib <= 1024);
#endif
}

void pend(ConfiguredBoard &b, const QString &transport)
{
    b.board.bluez.setProperty(transport, TransportInterface, QStringLiteral("State"), QStringLiteral("pending"));
}

} // namespace

class StreamFaultTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void cyclesLeaveNothingBehind();
    void clientsLeaveNothingBehind_data();
    void clientsLeaveNothingBehind();
    void acquireThatIsNeverAnswered();
    void endedStreamsCostNothing();
    void secondStreamWhileTheFirstPlays_data();
    void secondStreamWhileTheFirstPlays();
    void clientOfAnyPaceCostsTheSame_data();
    void clientOfAnyPaceCostsTheSame();
    void hourForAClientThatDoesNotRead();
};

void StreamFaultTest::cyclesLeaveNothingBehind()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    const QByteArray packet = packets(0.05).constFirst();
    const auto size = sim::decodeSbc({packet}).size();
    std::unique_ptr<Holdings> first;
    for (int round = 0; round < Rounds; ++round) {
        phone.connect();
        // The agent knows the phone once the daemon has asked for its name.
        QVERIFY(sim::waitFor([&] { return phone.authorize(); }));
        QVERIFY(phone.configure(sim::SbcFormat{}) && board.player.connectAudio() && phone.start(Mtu));
        QVERIFY(phone.send(packet) && sim::waitFor([&] { return board.player.heard().size() == size; }));
        QVERIFY(phone.clear());
        phone.disconnect();
        if (round == FirstRounds)
            first = std::make_unique<Holdings>(board.daemon);
    }
    WAIT_UNTIL(!board.player.audioConnected());
    compare(*first, Holdings(board.daemon));
}

void StreamFaultTest::clientsLeaveNothingBehind_data()
{
    QTest::addColumn<bool>("streaming");
    QTest::newRow("while nothing plays") << false;
    QTest::newRow("while a stream plays") << true;
}

void StreamFaultTest::clientsLeaveNothingBehind()
{
    QFETCH(bool, streaming);
    ConfiguredBoard b;
    QVERIFY(b.ready && b.phone.start(Mtu));
    const QByteArray packet = packets(0.05).constFirst();
    // Those that left stay, a bounded number of them, until a packet asks for each.
    const auto holdings = [&] {
        for (size_t i = 0; i <= AudioServer::WaitingLimit; ++i)
            b.phone.send(packet);
        return Holdings(b.board.daemon);
    };
    std::unique_ptr<Holdings> first;
    for (int round = 0; round < Rounds; ++round) {
        QLocalSocket client;
        client.connectToServer(QStringLiteral("bluetooth"));
        QVERIFY(client.waitForConnected());
        if (streaming)
            WAIT_UNTIL(b.phone.send(packet) && client.bytesAvailable() > 0);
        client.abort();
        if (round == FirstRounds)
            first = std::make_unique<Holdings>(holdings());
    }
    compare(*first, holdings());
    QVERIFY(b.board.player.connectAudio());
    WAIT_UNTIL(b.phone.send(packet) && !b.board.player.heard().isEmpty());
}

void StreamFaultTest::acquireThatIsNeverAnswered()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    const int descriptors = settledDescriptors(b.board.daemon);
    QDBusMessage unanswered;
    b.board.bluez.intercept(QStringLiteral("Acquire"), [&](const QDBusMessage &call) {
        unanswered = call;
        return true;
    });
    QElapsedTimer clock;
    clock.start();
    pend(b, b.phone.transportPath());
    const auto failed = [&] {
        return !b.board.daemon.logTexts()
                    .filter(QStringLiteral("MediaTransport1.Acquire: \"org.freedesktop.DBus.Error.NoReply\""))
                    .isEmpty();
    };
    QVERIFY(sim::waitFor(failed, 20'000));
    qInfo("gave up after %lld ms", clock.elapsed());
    QVERIFY(clock.elapsed() < 15'000);

    // The answer comes after all: its descriptor is closed, and nobody is confused.
    int ends[2];
    QCOMPARE(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    b.board.bluez.connection().send(
        unanswered.createReply({QVariant::fromValue(QDBusUnixFileDescriptor(ends[0])), QVariant::fromValue<ushort>(Mtu),
                                QVariant::fromValue<ushort>(Mtu)}));
    ::close(ends[0]);
    const FileDescriptor phoneEnd(ends[1]);
    char byte = 0;
    WAIT_UNTIL(::recv(phoneEnd.get(), &byte, 1, MSG_DONTWAIT) == 0); // nobody holds the other end
    QVERIFY(settledDescriptors(b.board.daemon) <= descriptors + sim::SparePlayerSockets);
    b.board.bluez.stopIntercepting(QStringLiteral("Acquire"));
    QVERIFY(b.playsAnother());
}

void StreamFaultTest::endedStreamsCostNothing()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    const QString other = PhonePath + QStringLiteral("/sep1/fd7");
    b.board.bluez.addObject(other, {{TransportInterface, {}}});
    b.board.bluez.callEndpoint(2, QStringLiteral("SetConfiguration"),
                               {QVariant::fromValue(QDBusObjectPath(other)),
                                QVariantMap{{QStringLiteral("Configuration"), QByteArray::fromHex("80010483e800")}}});

    // One stream was reset and has ended, the other can never be read.
    int ends[2];
    QCOMPARE(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    QCOMPARE(::send(ends[0], "x", 1, 0), ssize_t{1});
    int pipe[2];
    QCOMPARE(::pipe2(pipe, O_CLOEXEC), 0);
    b.board.bluez.offerStream(b.phone.transportPath(), ends[0], Mtu);
    b.board.bluez.offerStream(other, pipe[1], Mtu);
    pend(b, b.phone.transportPath());
    pend(b, other);
    WAIT_UNTIL(b.board.bluez.countCalls(QStringLiteral("Acquire")) == 2);
    for (const int fd : {ends[0], ends[1], pipe[0], pipe[1]})
        ::close(fd);
    QVERIFY(b.active()); // everything of the beginning has been logged
    settledDescriptors(b.board.daemon);

    const int before = b.board.daemon.cpuMs();
    const auto lines = b.board.daemon.log().size();
    QTest::qWait(5000); // what is measured is what happens while nothing happens
    const int used = b.board.daemon.cpuMs() - before;
    qInfo("CPU in 5 s: %d ms", used);
    QVERIFY(used < 250);
    QCOMPARE(b.board.daemon.log().size(), lines);
    QVERIFY(b.playsAnother());
}

void StreamFaultTest::secondStreamWhileTheFirstPlays_data()
{
    QTest::addColumn<uchar>("codec");
    QTest::addColumn<QByteArray>("configuration");
    QTest::newRow("of the same endpoint") << uchar{0} << QByteArray::fromHex("21150235");
    QTest::newRow("of the other endpoint") << uchar{2} << QByteArray::fromHex("80010483e800");
}

void StreamFaultTest::secondStreamWhileTheFirstPlays()
{
    QFETCH(uchar, codec);
    QFETCH(QByteArray, configuration);
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    const QList<QByteArray> sent = packets(1);
    const auto half = sent.size() / 2;
    QVERIFY(b.send(sent.mid(0, half)));

    const QVariant path = QVariant::fromValue(QDBusObjectPath(PhonePath + QStringLiteral("/fd9")));
    const QVariantMap properties{{QStringLiteral("Configuration"), configuration}};
    QCOMPARE(b.board.bluez.callEndpoint(codec, QStringLiteral("SetConfiguration"), {path, properties}).type(),
             QDBusMessage::ReplyMessage);
    QVERIFY(b.send(sent.mid(half)));
    QVERIFY(b.hears(sim::decodeSbc(sent)));
    if (codec == 0) {
        QVERIFY(b.logs("Warning: Unexpected SetConfiguration"));
    } else {
        QCOMPARE(b.board.bluez.callEndpoint(codec, QStringLiteral("ClearConfiguration"), {path}).type(),
                 QDBusMessage::ReplyMessage);
        QVERIFY(b.send(sent)); // the first plays on
        QVERIFY(b.hears(sim::decodeSbc(sent + sent)));
    }
    QVERIFY(b.playsAnother());
}

void StreamFaultTest::clientOfAnyPaceCostsTheSame_data()
{
    QTest::addColumn<int>("percent");
    for (const int percent : {20, 50, 80, 95})
        QTest::addRow("reads %d %%", percent) << percent;
}

void StreamFaultTest::clientOfAnyPaceCostsTheSame()
{
#ifdef KADO_SANITIZED
    QSKIP("A sanitizer keeps what is freed");
#endif
    QFETCH(int, percent);
    ConfiguredBoard b;
    QVERIFY(b.ready);
    QLocalSocket client;
    client.setReadBufferSize(1); // it reads nothing ahead
    client.connectToServer(QStringLiteral("bluetooth"));
    QVERIFY(client.waitForConnected() && b.phone.start(Mtu) && b.active());
    const QList<QByteArray> loop = packets(2);
    const auto bytes = static_cast<size_t>(sim::decodeSbc(loop).size() * percent / 100);
    QByteArray taken(static_cast<int>(bytes), '\0');
    const int before = b.board.daemon.privateDirtyKib();
    int most = 0;
    for (int i = 0; i < 100; ++i) {
        const auto timesTooSlow = [&] {
            return b.board.daemon.logTexts().filter(QStringLiteral("was too slow, packets dropped")).size();
        };
        const auto timesBefore = timesTooSlow();
        QVERIFY(b.send(loop));
        size_t read = 0;
        QVERIFY(sim::waitFor([&] {
            const ssize_t size = ::read(static_cast<int>(client.socketDescriptor()), taken.data(), bytes - read);
            read += size > 0 ? static_cast<size_t>(size) : 0;
            return read == bytes || timesTooSlow() > timesBefore; // the rest is dropped
        }));
        most = std::max(most, b.board.daemon.privateDirtyKib());
    }
    qInfo("grown by %d KiB at most", most - before);
    QVERIFY(most - before <= BacklogKib);
}

void StreamFaultTest::hourForAClientThatDoesNotRead()
{
    sim::SbcFormat format;
    format.sampleRate = 16000;
    format.mode = sim::SbcFormat::Mode::Mono;
    format.bitpool = 31;
    constexpr int LoopSeconds = 10;
    QList<QByteArray> loop = packets(LoopSeconds, format);
    loop.removeLast(); // the others are of one size
    // The first time round the decoder starts from nothing, after that always from the end of the loop.
    const QByteArray first = sim::decodeSbc(loop);
    const QByteArray later = sim::decodeSbc(loop + loop).mid(first.size());
    const auto onePacket = sim::decodeSbc({loop.constFirst()}).size();

    ConfiguredBoard b;
    QVERIFY(b.ready && b.phone.clear() && b.phone.configure(format) && b.startHeard());
    QVERIFY(b.send(loop));
    QVERIFY(b.hears(first));
    [[maybe_unused]] const int resident = b.board.daemon.residentKib();
    b.board.player.pauseReading(true);
    constexpr int Loops = 3600 / LoopSeconds;
    for (int i = 0; i < Loops; ++i)
        QVERIFY(b.send(loop)); // each is taken: packets go on being read
    WAIT_UNTIL(b.phone.drained());
    const int grown = b.board.daemon.residentKib() - resident;
    qInfo("an hour of audio in %lld packets, memory grown by %d KiB", qint64{Loops * loop.size()}, grown);
#ifndef KADO_SANITIZED // which keeps what is freed
    QVERIFY(grown <= BacklogKib);
#endif

    b.board.player.pauseReading(false);
    const auto lines = [&] { return b.board.daemon.logTexts().filter(QStringLiteral("Audio client ")); };
    WAIT_UNTIL(lines().size() == 2);
    QCOMPARE(lines().constFirst(), QStringLiteral("Audio client does not read, dropping packets"));
    const auto dropped = lines().last().section(QLatin1Char(' '), -2, -2).toLongLong();
    const auto kept = (Loops * loop.size() - dropped) * onePacket;
    qInfo("dropped %lld packets, kept %lld bytes", dropped, qint64{kept});
    QVERIFY(dropped > 0 && kept >= 4 * 1024 * 1024 - onePacket);

    QByteArray expected = first;
    while (expected.size() < first.size() + kept)
        expected += later;
    expected.truncate(static_cast<int>(first.size() + kept));
    QVERIFY(b.hears(expected)); // the backlog, not one sample torn
    QVERIFY(b.send(loop));
    QVERIFY(b.hears(expected + later)); // current audio
}

QTEST_GUILESS_MAIN(StreamFaultTest)
#include "tst_faultstream.moc"
