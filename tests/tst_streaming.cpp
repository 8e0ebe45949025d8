// SPDX-License-Identifier: MIT
// Streams through the shipped binary, from a phone's socket to a client of the local audio socket.

#include "streamingboard.h"

#include <QDBusUnixFileDescriptor>

#include <fcntl.h>
#include <sys/socket.h>

using namespace boardtest;

class StreamingTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void phonePlaysThroughThePlayer();
    void streamsAreReadToTheirEnd();
    void statesDecideAcquisition();
    void failedAcquireIsRetried();
    void otherConfigurationsLeaveTheStreamAlone();
    void newestClientReceives();
    void reconnectedClientMissesNothing();
    void slowClient();
    void slowClientCostsItsBacklogAtMost();
    void malformedPacketsAreSkipped();
    void aacReachesThePlayerAsAdts();
    void endedStreamsUseNoCpu();
    void cyclesDoNotLeak();
};

void StreamingTest::phonePlaysThroughThePlayer()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    b.board.player.connectOnPlay(true);
    QVERIFY(b.phone.start(Mtu) && b.active());
    QCOMPARE(b.board.control.call(QStringLiteral("SelectBluetooth")).type(), QDBusMessage::ReplyMessage);
    WAIT_UNTIL(b.board.player.audioConnected());

    const QList<QByteArray> sent = packets(2);
    b.phone.play(sent, {}); // in real time
    QVERIFY(sim::waitFor([&] { return !b.phone.isPlaying(); }, 10000));
    QVERIFY(b.hears(sim::decodeSbc(sent)));
    b.phone.suspend();
    WAIT_UNTIL(!b.board.player.audioConnected());
    QVERIFY(b.phone.clear());
    b.phone.disconnect();
    WAIT_UNTIL(b.board.player.targets().size() == 6);

    const QStringList expected{
        notification(true, false, "", false),
        notification(true, true, "Anna", false),
        notification(true, true, "Anna", true),
        QStringLiteral("/Play?url=Capture:bluez:bluetooth:pcm/44100/16/2&name=Anna"),
        notification(true, true, "Anna", false),
        notification(true, false, "", false),
    };
    QCOMPARE(b.board.player.targets(), expected);
    const QStringList log{
        QStringLiteral("start kado-bt " KADO_VERSION),
        QStringLiteral("Set default adapter:  \"/org/bluez/hci0\" "),
        QStringLiteral("Device Connect: \"%1\" ").arg(PhonePath),
        QStringLiteral("Active Device: \"%1\" \"Anna\" ").arg(PhonePath),
        QStringLiteral("Agent1::AuthorizeService \"%1\" \"0000110d-0000-1000-8000-00805f9b34fb\" ").arg(PhonePath),
        QStringLiteral("SetConfiguration: \"21150235\" Codec: \"pcm\" "),
        QStringLiteral("Sample Rate: 44100 Bit Depth: 16 Channels: 2 "),
        QStringLiteral("Transport State = \"pending\" "),
        QStringLiteral("Transport State = \"active\" "),
        QStringLiteral("SelectBluetooth(): "
                       "\"http://127.0.0.1:11000/Play?url=Capture:bluez:bluetooth:pcm/44100/16/2&name=Anna\" "),
        QStringLiteral("New audio out socket connection accepted"),
        QStringLiteral("Transport State = \"idle\" "),
        QStringLiteral("Device Disconnect: \"%1\" ").arg(PhonePath),
        QStringLiteral("Active Device: \"\" \"\" "),
    };
    WAIT_UNTIL(b.board.daemon.logTexts().size() >= log.size());
    QCOMPARE(b.board.daemon.logTexts(), log);
}

void StreamingTest::streamsAreReadToTheirEnd()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    const QList<QByteArray> sent = packets(0.5);
    QList<QByteArray> before;
    const auto plays = [&] { return b.startHeard() && b.send(sent); };
    const auto heardToItsEnd = [&] {
        const QByteArray pcm = decodedAfter(before, sent);
        before += sent; // the codec keeps one decoder
        return sim::waitFor([&] { return !b.board.player.audioConnected(); }) && b.hears(pcm) && !b.streaming();
    };

    QVERIFY(b.startHeard() && b.board.daemon.pause());
    QVERIFY(b.send(sent)); // all packets are still in the socket when the stream ends
    b.phone.suspend();
    QVERIFY(b.board.daemon.resume());
    QVERIFY(heardToItsEnd());

    QVERIFY(plays());
    QCOMPARE(b.board.bluez.countCalls(QStringLiteral("Acquire")), 2);
    QVERIFY(b.phone.clear()); // without a change of State before
    QVERIFY(heardToItsEnd());

    QVERIFY(b.phone.configure(sim::SbcFormat{}) && plays());
    b.phone.hangUp();
    WAIT_UNTIL(b.board.player.targets().last() == notification(true, false, "", false));
    QVERIFY(heardToItsEnd());

    b.phone.connect();
    WAIT_UNTIL(b.board.player.targets().last() == notification(true, true, "Anna", false));
    QVERIFY(b.phone.authorize() && b.phone.configure(sim::SbcFormat{}) && plays());
    b.board.bluez.removeAdapter();
    WAIT_UNTIL(b.board.player.targets().last() == notification(false, false, "", false));
    QVERIFY(heardToItsEnd());
}

void StreamingTest::statesDecideAcquisition()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    const auto acquired = [&] { return b.board.bluez.countCalls(QStringLiteral("Acquire")); };
    b.state("active"); // without "pending" before
    QVERIFY(b.streaming());
    b.state("idle");
    b.board.bluez.emitPropertiesChanged(b.phone.transportPath(), QStringLiteral("org.bluez.MediaControl1"),
                                        {{QStringLiteral("State"), QStringLiteral("pending")}});
    QVERIFY(!b.streaming());
    QCOMPARE(acquired(), 0);
    b.board.control.call(QStringLiteral("SelectBluetooth"));
    QVERIFY(b.logs("SelectBluetooth(): transport not active"));

    QVERIFY(b.startHeard());
    WAIT_UNTIL(b.board.player.targets().size() == 5); // adapter, phone, active, idle, active
    b.board.player.clearRequests();
    b.state("pending"); // the stream continues
    QVERIFY(!b.streaming());
    b.state("active");
    QVERIFY(b.streaming());
    QVERIFY(b.send(packets(0.2)));
    QVERIFY(b.hears(sim::decodeSbc(packets(0.2))));
    QCOMPARE(acquired(), 1);
    b.state("broken"); // an unknown state counts as not active
    QVERIFY(!b.streaming());
    WAIT_UNTIL(!b.board.player.audioConnected());
    WAIT_UNTIL(b.board.player.targets()
               == QStringList({notification(true, true, "Anna", false), notification(true, true, "Anna", true),
                               notification(true, true, "Anna", false)}));
}

void StreamingTest::failedAcquireIsRetried()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    const int descriptors = settledDescriptors(b.board.daemon);
    const QVariant descriptor = QVariant::fromValue(QDBusUnixFileDescriptor(0));
    const QVariant mtu = QVariant::fromValue<ushort>(Mtu);
    const QVariant none = QVariant::fromValue<ushort>(0);
    const QList<QVariantList> answers{
        {}, // becomes an error reply
        {descriptor},
        {5, mtu, mtu},
        {descriptor, QStringLiteral("672"), QStringLiteral("672")},
        {descriptor, none, none},
    };
    constexpr int RoundsEach = 4;
    int calls = 0;
    for (const QVariantList &values : answers) {
        b.board.bluez.intercept(QStringLiteral("Acquire"), [&](const QDBusMessage &call) {
            b.board.bluez.connection().send(values.isEmpty()
                                                ? call.createErrorReply(QStringLiteral("org.bluez.Error.Failed"), {})
                                                : call.createReply(values));
            return true;
        });
        for (int round = 0; round < RoundsEach; ++round) {
            b.state("pending");
            ++calls;
            WAIT_UNTIL(b.board.daemon.logTexts().filter(QStringLiteral("MediaTransport1.Acquire:")).size() == calls);
        }
    }
    QCOMPARE(b.board.bluez.countCalls(QStringLiteral("Acquire")), calls);
    WAIT_UNTIL(b.board.daemon.openDescriptors() <= descriptors + sim::SparePlayerSockets);
    b.board.bluez.stopIntercepting(QStringLiteral("Acquire"));
    QVERIFY(b.playsNewStream());
}

void StreamingTest::otherConfigurationsLeaveTheStreamAlone()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    const QList<QByteArray> sent = packets(1);
    const auto half = sent.size() / 2;
    QVERIFY(b.send(sent.mid(0, half)));

    const QVariant path = QVariant::fromValue(QDBusObjectPath(PhonePath + QStringLiteral("/fd9")));
    const auto ask = [&](uchar codec, const char *method, const QVariantList &arguments) {
        return b.board.bluez.callEndpoint(codec, QLatin1String(method), arguments);
    };
    const auto configure = [&](uchar codec, const QVariantMap &properties) {
        return ask(codec, "SetConfiguration", {path, properties}).type() == QDBusMessage::ReplyMessage;
    };
    const QString configuration = QStringLiteral("Configuration");
    QCOMPARE(ask(0, "SelectConfiguration", {QByteArray::fromHex("ffff0235")}).arguments(),
             QVariantList{QByteArray::fromHex("11160235")});
    QVERIFY(configure(0, {{configuration, QByteArray::fromHex("11150235")}}));
    QVERIFY(b.logs("Warning: Unexpected SetConfiguration"));
    b.board.control.call(QStringLiteral("SelectBluetooth"));
    WAIT_UNTIL(b.board.player.targets().last() // the codec's latest values
               == QStringLiteral("/Play?url=Capture:bluez:bluetooth:pcm/48000/16/2&name=Anna"));
    QVERIFY(configure(2, {{configuration, QByteArray::fromHex("80010483e800")}}));
    QCOMPARE(ask(2, "ClearConfiguration", {path}).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(ask(0, "Release", {}).type(), QDBusMessage::ReplyMessage);
    QVERIFY(b.send(sent.mid(half)));
    QVERIFY(b.hears(sim::decodeSbc(sent)));

    QCOMPARE(ask(0, "ClearConfiguration", {path}).type(), QDBusMessage::ReplyMessage); // accepted for any path
    WAIT_UNTIL(!b.board.player.audioConnected());
    QVERIFY(configure(0, {{QStringLiteral("State"), 7}})); // without a configuration
    QVERIFY(b.playsNewStream());
}

void StreamingTest::newestClientReceives()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.phone.start(Mtu) && b.active());
    QVERIFY(b.send(packets(20))); // many times the size of the socket's buffer
    WAIT_UNTIL(b.phone.drained());
    sim::Player earlier;
    QVERIFY(earlier.connectAudio() && b.board.player.connectAudio());
    const QList<QByteArray> sent = packets(0.5);
    QVERIFY(b.send(sent));
    WAIT_UNTIL(!earlier.audioConnected());
    const QByteArray pcm = sim::decodeSbc(sent);
    const auto onePacket = sim::decodeSbc({sent.constFirst()}).size();
    QVERIFY(earlier.heard() == pcm.left(onePacket)); // accepted with the first packet, replaced with the second
    QVERIFY(b.hears(pcm.mid(onePacket)));
    QCOMPARE(b.board.daemon.logTexts().count(QStringLiteral("New audio out socket connection accepted")), 2);
}

void StreamingTest::reconnectedClientMissesNothing()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    const QList<QByteArray> sent = packets(0.1);
    const auto onePacket = sim::decodeSbc({sent.at(0)}).size();
    QVERIFY(b.phone.send(sent.at(0)));
    WAIT_UNTIL(b.board.player.heard().size() == onePacket);
    b.board.player.disconnectAudio();
    QVERIFY(b.phone.send(sent.at(1)));
    WAIT_UNTIL(b.phone.drained());

    QVERIFY(b.board.daemon.pause());
    QVERIFY(b.phone.send(sent.at(2))); // the daemon reads the packet before it sees the client
    QVERIFY(b.board.player.connectAudio());
    QVERIFY(b.board.daemon.resume());
    WAIT_UNTIL(b.board.player.heard().size() == onePacket);
}

void StreamingTest::slowClient()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    const QList<QByteArray> sent = packets(8); // 1.4 MB of PCM
    b.board.player.pauseReading(true);
    QVERIFY(b.send(sent)); // every packet is read
    b.board.player.pauseReading(false);
    QVERIFY(b.hears(sim::decodeSbc(sent)));

    // At the end of the stream the client's backlog is dropped.
    b.board.player.pauseReading(true);
    QVERIFY(b.send(sent));
    b.phone.suspend();
    WAIT_UNTIL(!b.streaming());
    b.board.player.pauseReading(false);
    WAIT_UNTIL(!b.board.player.audioConnected());
    QVERIFY(sim::decodeSbc(sent + sent).startsWith(b.board.player.heard()));
    constexpr int SocketBytes = 256 * 1024; // somewhat more than the socket's buffer
    QVERIFY(b.board.player.heard().size() < sim::decodeSbc(sent).size() + SocketBytes);
    QVERIFY(b.playsNewStream());
}

void StreamingTest::slowClientCostsItsBacklogAtMost()
{
#ifdef KADO_SANITIZED
    QSKIP("a sanitizer keeps freed memory");
#endif
    constexpr int BacklogKib = 4 * 1024;
    constexpr int OtherKib = 512;
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    const QList<QByteArray> sent = packets(60); // more than twice the backlog limit
    const int before = b.board.daemon.privateDirtyKib();
    for (int round = 1; round <= 3; ++round) { // the C library adapts in the first round
        b.board.player.pauseReading(true);
        QVERIFY(b.send(sent)); // the daemon still reads every packet
        QVERIFY(b.board.daemon.privateDirtyKib() < before + BacklogKib + OtherKib);
        b.board.player.pauseReading(false);
        WAIT_UNTIL(b.board.daemon.logTexts().filter(QStringLiteral("too slow")).size() == round);
        WAIT_UNTIL(b.board.daemon.privateDirtyKib() < before + OtherKib);
    }
}

void StreamingTest::malformedPacketsAreSkipped()
{
    ConfiguredBoard b(Traced);
    QVERIFY(b.ready && b.startHeard());
    const QList<QByteArray> sent = packets(0.5);
    QList<QByteArray> mixed;
    for (const QByteArray &packet : sent) {
        mixed << packet << packet.left(13) + QByteArray(300, '\x11') << QByteArray(7, '\x9C')
              << packet.left(13) + packet.mid(13, 40);
    }
    mixed.insert(mixed.size() / 2, QByteArray()); // an empty packet reads like end of file, but the stream continues
    QVERIFY(b.send(mixed));
    QVERIFY(b.hears(sim::decodeSbc(sent)));
    QVERIFY(b.logs("SBC decoding error -2"));
    QVERIFY(b.logs("SBC decoding error -1"));
}

void StreamingTest::aacReachesThePlayerAsAdts()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.phone.clear());
    QVERIFY(b.phone.configure(2, QByteArray::fromHex("80010483e800")) && b.startHeard());
    b.board.control.call(QStringLiteral("SelectBluetooth"));
    WAIT_UNTIL(b.board.player.targets().last()
               == QStringLiteral("/Play?url=Capture:bluez:bluetooth:aac/44100/16/2&name=Anna"));
    const QByteArray payload(300, 'a');
    QVERIFY(b.send({sim::aacPacket(payload), QByteArray(30, '\xFF'), sim::aacPacket("b")}));
    QVERIFY(b.hears(QByteArray::fromHex("fff15080267ffc") + payload + QByteArray::fromHex("fff15080011ffc") + "b"));
}

void StreamingTest::endedStreamsUseNoCpu()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    const QString other = PhonePath + QStringLiteral("/sep1/fd7");
    b.board.bluez.addObject(other, {{TransportInterface, {}}});
    b.board.bluez.callEndpoint(2, QStringLiteral("SetConfiguration"),
                               {QVariant::fromValue(QDBusObjectPath(other)),
                                QVariantMap{{QStringLiteral("Configuration"), QByteArray::fromHex("80010483e800")}}});

    // One stream was reset and has ended. The other descriptor is not readable.
    int ends[2];
    QCOMPARE(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    QCOMPARE(::send(ends[0], "x", 1, 0), ssize_t{1});
    int pipe[2];
    QCOMPARE(::pipe2(pipe, O_CLOEXEC), 0);
    b.board.bluez.offerStream(b.phone.transportPath(), ends[0], Mtu);
    b.board.bluez.offerStream(other, pipe[1], Mtu);
    b.state("pending");
    b.board.bluez.setProperty(other, TransportInterface, QStringLiteral("State"), QStringLiteral("pending"));
    WAIT_UNTIL(b.board.bluez.countCalls(QStringLiteral("Acquire")) == 2);
    for (const int fd : {ends[0], ends[1], pipe[0], pipe[1]})
        ::close(fd);
    QVERIFY(b.active()); // all lines of the start have been logged
    settledDescriptors(b.board.daemon);

    const int before = b.board.daemon.cpuMs();
    const auto lines = b.board.daemon.log().size();
    QTest::qWait(2000); // measure CPU time and log lines without any event
    const int used = b.board.daemon.cpuMs() - before;
    QVERIFY2(used < 200, qPrintable(QString::number(used)));
    QCOMPARE(b.board.daemon.log().size(), lines);
    QVERIFY(b.playsNewStream());
}

void StreamingTest::cyclesDoNotLeak()
{
    constexpr int Rounds = 1000;
    constexpr int FirstRounds = 50; // until caches and pools are filled
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    const QByteArray packet = packets(0.05).constFirst();
    const auto size = sim::decodeSbc({packet}).size();
    int descriptors = 0;
    [[maybe_unused]] int residentKib = 0;
    for (int round = 0; round < Rounds; ++round) {
        phone.connect();
        // Retry until the daemon has seen the phone.
        WAIT_UNTIL(phone.authorize());
        QVERIFY(sim::Player().connectAudio()); // disconnects before the stream starts
        QVERIFY(phone.configure(sim::SbcFormat{}) && board.player.connectAudio() && phone.start(Mtu));
        QVERIFY(phone.send(packet));
        WAIT_UNTIL(board.player.heard().size() == size);
        QVERIFY(phone.clear());
        phone.disconnect();
        if (round == FirstRounds) {
            descriptors = settledDescriptors(board.daemon);
            residentKib = board.daemon.residentKib();
        }
    }
    WAIT_UNTIL(!board.player.audioConnected());
    QVERIFY(settledDescriptors(board.daemon) <= descriptors + sim::SparePlayerSockets);
#ifndef KADO_SANITIZED // a sanitizer keeps freed memory
    QVERIFY(board.daemon.residentKib() - residentKib <= 1024);
#endif
}

QTEST_GUILESS_MAIN(StreamingTest)
#include "tst_streaming.moc"
