// Streams through the shipped binary: from a phone's socket to the client of the local audio socket.

#include "streamingboard.h"

#include <QDBusUnixFileDescriptor>
#include <QLocalSocket>

using namespace boardtest;

namespace {

const QStringList Traced{QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")};
const QString TransportInterface = QStringLiteral("org.bluez.MediaTransport1");

} // namespace

class StreamingTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void phonePlaysThroughThePlayer();
    void suspendPlaysTheTailAndResumeStartsAnew();
    void hangUpWhileStreaming();
    void clearedStreamPlaysItsTail();
    void statesDecideAcquisition();
    void failedAcquireIsTriedAgain_data();
    void failedAcquireIsTriedAgain();
    void secondConfigurationIsIgnored();
    void selectionByBluez();
    void selectBluetoothNeedsAnActiveStream();
    void newestClientHears();
    void clientThatComesBackMissesNothing();
    void clientsThatLeaveSilenceNobody();
    void whatClientsSayIsForgotten();
    void packetsAreReadWithoutAClient();
    void slowClientDelaysNothing();
    void slowClientIsSparedStaleSound();
    void slowClientsMemoryIsGivenBack();
    void malformedPacketsPassBy();
    void aacReachesThePlayerAsAdts();
    void adapterLossEndsTheStream();
    void descriptorsAreClosed();
};

void StreamingTest::phonePlaysThroughThePlayer()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    b.board.player.connectWhenTold(true);
    QVERIFY(b.phone.start(Mtu) && b.active());
    QCOMPARE(b.board.control.call(QStringLiteral("SelectBluetooth")).type(), QDBusMessage::ReplyMessage);
    WAIT_UNTIL(b.board.player.audioConnected());

    const QList<QByteArray> sent = packets(2);
    b.phone.play(sent, {}); // at the pace of the audio
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
        QStringLiteral("start kado-bt 0.14"),
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

void StreamingTest::suspendPlaysTheTailAndResumeStartsAnew()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    const QList<QByteArray> first = packets(3);
    const QList<QByteArray> second = packets(1);
    const auto tail = first.size() - 20; // what follows from there fits into the client's socket
    QVERIFY(b.startHeard());
    QVERIFY(b.send(first.mid(0, tail)));
    QVERIFY(b.hears(sim::decodeSbc(first.mid(0, tail))));
    QVERIFY(b.send(first.mid(tail)));
    b.phone.suspend(); // the last packets are still in the socket
    WAIT_UNTIL(!b.board.player.audioConnected());
    QVERIFY(b.hears(sim::decodeSbc(first)));

    QVERIFY(b.startHeard());
    QCOMPARE(b.board.bluez.countCalls(QStringLiteral("Acquire")), 2);
    QVERIFY(b.send(second));
    // One decoder for the codec's life: the second stream goes on where the first ended.
    const QByteArray both = sim::decodeSbc(first + second);
    QVERIFY(b.hears(both.mid(sim::decodeSbc(first).size())));
}

void StreamingTest::hangUpWhileStreaming()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    const QList<QByteArray> sent = packets(0.5);
    QVERIFY(b.send(sent));
    b.phone.hangUp();
    WAIT_UNTIL(b.board.player.targets().last() == notification(true, false, "", false));
    WAIT_UNTIL(!b.board.player.audioConnected());
    QVERIFY(b.hears(sim::decodeSbc(sent)));
    QCOMPARE(b.board.control.property(QStringLiteral("Streaming")), QVariant(false));

    b.phone.connect();
    WAIT_UNTIL(b.board.player.targets().last() == notification(true, true, "Anna", false));
    QVERIFY(b.phone.authorize() && b.phone.configure(sim::SbcFormat{}) && b.startHeard());
    QVERIFY(b.send(sent));
    QVERIFY(b.hears(sim::decodeSbc(sent + sent).mid(sim::decodeSbc(sent).size())));
}

void StreamingTest::clearedStreamPlaysItsTail()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    const QList<QByteArray> sent = packets(0.5);
    QVERIFY(b.send(sent));
    QVERIFY(b.phone.clear()); // no State before it
    WAIT_UNTIL(!b.board.player.audioConnected());
    QVERIFY(b.hears(sim::decodeSbc(sent)));
}

void StreamingTest::statesDecideAcquisition()
{
    ConfiguredBoard b(Traced);
    QVERIFY(b.ready);
    const QString path = b.phone.transportPath();
    const auto acquired = [&] { return b.board.bluez.countCalls(QStringLiteral("Acquire")); };
    const auto state = [&](const char *value) {
        b.board.bluez.emitPropertiesChanged(path, TransportInterface,
                                            {{QStringLiteral("State"), QString::fromLatin1(value)}});
    };
    const auto streaming = [&] { return b.board.control.property(QStringLiteral("Streaming")).toBool(); };

    state("idle");
    state("active"); // never pending in this process
    QVERIFY(streaming());
    QCOMPARE(acquired(), 0);
    state("idle");
    b.board.bluez.emitPropertiesChanged(path, QStringLiteral("org.bluez.MediaControl1"),
                                        {{QStringLiteral("State"), QStringLiteral("pending")}});
    b.board.bluez.emitPropertiesChanged(path, TransportInterface, {{QStringLiteral("Volume"), QVariant(64)}});
    b.board.bluez.emitPropertiesChanged(path, TransportInterface, {{QStringLiteral("State"), QVariant(1)}});
    QVERIFY(!streaming());
    QCOMPARE(acquired(), 0);

    QVERIFY(b.phone.start(Mtu));
    WAIT_UNTIL(b.board.player.targets().size() == 5); // adapter, phone, active, idle, active
    b.board.player.forgetRequests();
    state("pending");
    QVERIFY(!streaming());
    state("pending");
    state("active");
    QVERIFY(streaming());
    QCOMPARE(acquired(), 1);
    QVERIFY(!b.board.daemon.logged(QStringLiteral("Cleanup Transport")));
    state("broken");
    QVERIFY(!streaming());
    QVERIFY(b.logs("Cleanup Transport"));
    WAIT_UNTIL(b.board.player.targets()
               == QStringList({notification(true, true, "Anna", false), notification(true, true, "Anna", true),
                               notification(true, true, "Anna", false)}));
}

void StreamingTest::failedAcquireIsTriedAgain_data()
{
    QTest::addColumn<QVariantList>("values");
    QTest::addColumn<QString>("line");
    const QString nothing = QStringLiteral("org.bluez.MediaTransport1.Acquire: \"\" \"\"");
    const QVariant descriptor = QVariant::fromValue(QDBusUnixFileDescriptor(0));
    QTest::newRow("error") << QVariantList()
                           << "org.bluez.MediaTransport1.Acquire: \"org.bluez.Error.Failed\" \"Not now\"";
    QTest::newRow("too few values") << QVariantList{descriptor} << nothing;
    QTest::newRow("no descriptor") << QVariantList{5, QVariant::fromValue<ushort>(672),
                                                   QVariant::fromValue<ushort>(672)}
                                   << nothing;
    QTest::newRow("text for an MTU") << QVariantList{descriptor, QStringLiteral("672"), QStringLiteral("672")}
                                     << nothing;
    QTest::newRow("no MTU") << QVariantList{descriptor, QVariant::fromValue<ushort>(0), QVariant::fromValue<ushort>(0)}
                            << nothing;
}

void StreamingTest::failedAcquireIsTriedAgain()
{
    QFETCH(QVariantList, values);
    QFETCH(QString, line);
    ConfiguredBoard b;
    QVERIFY(b.ready);
    b.board.bluez.intercept(QStringLiteral("Acquire"), [&](const QDBusMessage &call) {
        b.board.bluez.connection().send(values.isEmpty() ? call.createErrorReply(
                                            QStringLiteral("org.bluez.Error.Failed"), QStringLiteral("Not now"))
                                                         : call.createReply(values));
        return true;
    });
    const auto pend = [&] {
        b.board.bluez.setProperty(b.phone.transportPath(), TransportInterface, QStringLiteral("State"),
                                  QStringLiteral("pending"));
    };
    pend();
    QVERIFY(sim::waitFor([&] { return b.board.daemon.logged(line); }));
    const int descriptors = b.board.daemon.openDescriptors();
    for (int round = 2; round <= 20; ++round) {
        pend();
        WAIT_UNTIL(b.board.daemon.logTexts().count(line + QLatin1Char(' ')) == round);
    }
    QCOMPARE(b.board.bluez.countCalls(QStringLiteral("Acquire")), 20);
    WAIT_UNTIL(b.board.daemon.openDescriptors() <= descriptors + sim::SparePlayerSockets);

    b.board.bluez.stopIntercepting(QStringLiteral("Acquire"));
    QVERIFY(b.startHeard());
    QVERIFY(b.send(packets(0.2)));
    QVERIFY(b.hears(sim::decodeSbc(packets(0.2))));
}

void StreamingTest::secondConfigurationIsIgnored()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    const QString first = b.phone.transportPath();
    const QDBusMessage reply = b.board.bluez.callEndpoint(
        0, QStringLiteral("SetConfiguration"),
        {QVariant::fromValue(QDBusObjectPath(PhonePath + QStringLiteral("/fd9"))),
         QVariantMap{{QStringLiteral("Configuration"), QByteArray::fromHex("11150235")}}});
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QVERIFY(b.logs("Warning: Unexpected SetConfiguration"));
    QCOMPARE(b.phone.transportPath(), first);
    QVERIFY(b.startHeard()); // the first transport is still followed
    b.board.control.call(QStringLiteral("SelectBluetooth"));
    WAIT_UNTIL(b.board.player.targets().last()
               == QStringLiteral("/Play?url=Capture:bluez:bluetooth:pcm/48000/16/2&name=Anna"));
    QVERIFY(b.send(packets(0.2)));
    QVERIFY(b.hears(sim::decodeSbc(packets(0.2))));
}

void StreamingTest::selectionByBluez()
{
    ConfiguredBoard b(Traced);
    QVERIFY(b.ready);
    QDBusMessage reply = b.board.bluez.callEndpoint(0, QStringLiteral("SelectConfiguration"),
                                                    {QByteArray::fromHex("ffff0235")});
    QCOMPARE(reply.arguments(), QVariantList{QByteArray::fromHex("11160235")});
    QVERIFY(b.logs("SelectConfiguration: \"ffff0235\" Codec: \"pcm\""));
    QVERIFY(b.logs("Selected: \"11160235\""));
    QCOMPARE(b.board.bluez.callEndpoint(0, QStringLiteral("Release"), {}).type(), QDBusMessage::ReplyMessage);
    QVERIFY(b.logs("MediaEndpoint1::Release"));
    QVERIFY(b.startHeard()); // Release left the stream alone
    QVERIFY(b.phone.clear());
    const QVariantList path{QVariant::fromValue(QDBusObjectPath(QStringLiteral("/any")))};
    QCOMPARE(b.board.bluez.callEndpoint(0, QStringLiteral("ClearConfiguration"), path).type(),
             QDBusMessage::ReplyMessage);
    reply = b.board.bluez.callEndpoint(0, QStringLiteral("SetConfiguration"),
                                       {path.constFirst(), QVariantMap{{QStringLiteral("State"), 7}}});
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QVERIFY(b.logs("SetConfiguration: \"\" Codec: \"pcm\""));
}

void StreamingTest::selectBluetoothNeedsAnActiveStream()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    b.board.control.call(QStringLiteral("SelectBluetooth"));
    QVERIFY(b.logs("SelectBluetooth(): transport not active"));
    QVERIFY(b.phone.clear());
    b.board.control.call(QStringLiteral("SelectBluetooth"));
    QVERIFY(b.logs("SelectBluetooth(): no transport"));
    QVERIFY(b.board.player.targets().filter(QStringLiteral("/Play")).isEmpty());
}

void StreamingTest::newestClientHears()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    sim::Player earlier;
    QVERIFY(earlier.connectAudio());
    QVERIFY(b.startHeard());
    const QList<QByteArray> sent = packets(0.5);
    QVERIFY(b.send(sent));
    WAIT_UNTIL(!earlier.audioConnected());
    WAIT_UNTIL(b.accepted() == 2);
    const QByteArray pcm = sim::decodeSbc(sent);
    const auto onePacket = sim::decodeSbc({sent.constFirst()}).size();
    QVERIFY(earlier.heard() == pcm.left(onePacket)); // adopted with the first packet, replaced with the second
    QVERIFY(b.hears(pcm.mid(onePacket)));
}

void StreamingTest::clientThatComesBackMissesNothing()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    const QList<QByteArray> sent = packets(0.1);
    const auto onePacket = sim::decodeSbc({sent.at(0)}).size();
    QVERIFY(b.phone.send(sent.at(0)));
    WAIT_UNTIL(b.board.player.heard().size() == onePacket);
    b.board.player.hangUpAudio();
    QVERIFY(b.phone.send(sent.at(1)));
    WAIT_UNTIL(b.phone.drained());

    QVERIFY(b.board.daemon.hold());
    QVERIFY(b.phone.send(sent.at(2))); // the daemon hears of the packet before it hears of the client
    QVERIFY(b.board.player.connectAudio());
    QVERIFY(b.board.daemon.letGo());
    WAIT_UNTIL(b.board.player.heard().size() == onePacket);
}

void StreamingTest::clientsThatLeaveSilenceNobody()
{
    constexpr int Leaving = 20;
    ConfiguredBoard b;
    QVERIFY(b.ready);
    const auto comeAndGo = [](int clients) {
        for (int i = 0; i < clients; ++i) {
            sim::Player leaving;
            if (!leaving.connectAudio())
                return false;
        }
        return true;
    };
    QVERIFY(comeAndGo(Leaving));
    QVERIFY(b.startHeard());
    const QList<QByteArray> sent = packets(0.5);
    const auto half = sent.size() / 2;
    QVERIFY(b.send(sent.mid(0, half)));
    QVERIFY(b.hears(sim::decodeSbc(sent.mid(0, half))));
    QVERIFY(comeAndGo(1));
    QVERIFY(b.send(sent.mid(half)));
    QVERIFY(b.hears(sim::decodeSbc(sent)));
    QCOMPARE(b.accepted(), 1);
}

void StreamingTest::whatClientsSayIsForgotten()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    QLocalSocket client;
    client.connectToServer(QStringLiteral("bluetooth"));
    QVERIFY(client.waitForConnected());
    const auto says = [&] { // several times what a socket holds
        client.write(QByteArray(1024 * 1024, 'x'));
        return sim::waitFor([&] { return client.bytesToWrite() == 0; });
    };
    QVERIFY(says());
    QVERIFY(b.phone.start(Mtu) && b.active() && b.send(packets(0.1)));
    WAIT_UNTIL(client.bytesAvailable() == sim::decodeSbc(packets(0.1)).size());
    QVERIFY(says());
}

void StreamingTest::packetsAreReadWithoutAClient()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    QVERIFY(b.phone.start(Mtu));
    QVERIFY(b.send(packets(20))); // many times what the socket holds
    QVERIFY(b.board.player.connectAudio());
    const QList<QByteArray> late = packets(0.3);
    QVERIFY(b.send(late));
    WAIT_UNTIL(b.accepted() == 1);
    QVERIFY(sim::waitFor([&] { return !b.board.player.heard().isEmpty(); }));
}

void StreamingTest::slowClientDelaysNothing()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    b.board.player.pauseReading(true);
    const QList<QByteArray> sent = packets(8);
    QVERIFY(b.send(sent)); // 1.4 MB of PCM, and every packet was read
    b.board.player.pauseReading(false);
    QVERIFY(b.hears(sim::decodeSbc(sent)));
    QCOMPARE(b.accepted(), 1);
}

void StreamingTest::slowClientIsSparedStaleSound()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    b.board.player.pauseReading(true);
    const QList<QByteArray> sent = packets(8);
    QVERIFY(b.send(sent));
    b.phone.suspend();
    WAIT_UNTIL(!b.board.control.property(QStringLiteral("Streaming")).toBool());
    b.board.player.pauseReading(false);
    WAIT_UNTIL(!b.board.player.audioConnected());
    const QByteArray pcm = sim::decodeSbc(sent);
    QVERIFY(pcm.startsWith(b.board.player.heard()));
    constexpr int SocketBytes = 256 * 1024; // and somewhat more than it holds
    QVERIFY(b.board.player.heard().size() < SocketBytes);
    QVERIFY(b.playsAnother());
}

void StreamingTest::slowClientsMemoryIsGivenBack()
{
#ifdef KADO_SANITIZED
    QSKIP("A sanitizer keeps what is freed");
#endif
    constexpr int BacklogKib = 4 * 1024;
    constexpr int OtherKib = 512;
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    const QList<QByteArray> sent = packets(30); // more than is kept
    const int before = b.board.daemon.privateDirtyKib();
    for (int round = 1; round <= 3; ++round) { // the C library learns from the first
        b.board.player.pauseReading(true);
        QVERIFY(b.send(sent));
        QVERIFY(b.board.daemon.privateDirtyKib() < before + BacklogKib + OtherKib);
        b.board.player.pauseReading(false);
        WAIT_UNTIL(b.board.daemon.logTexts().filter(QStringLiteral("too slow")).size() == round);
        WAIT_UNTIL(b.board.daemon.privateDirtyKib() < before + OtherKib);
    }
}

void StreamingTest::malformedPacketsPassBy()
{
    ConfiguredBoard b(Traced);
    QVERIFY(b.ready && b.startHeard());
    const QList<QByteArray> sent = packets(0.5);
    QList<QByteArray> mixed;
    for (const QByteArray &packet : sent) {
        mixed << packet << packet.left(13) + QByteArray(300, '\x11') << QByteArray(7, '\x9C')
              << packet.left(13) + packet.mid(13, 40);
    }
    QVERIFY(b.send(mixed));
    QVERIFY(b.hears(sim::decodeSbc(sent)));
    QVERIFY(b.logs("SBC decoding error -2"));
    QVERIFY(b.logs("SBC decoding error -1"));
}

void StreamingTest::aacReachesThePlayerAsAdts()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    phone.connect();
    WAIT_UNTIL(board.player.targets().size() == 2);
    QVERIFY(phone.authorize() && phone.configure(2, QByteArray::fromHex("80010483e800")));
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Bitrate: 15400960 VBR")));
    QVERIFY(board.player.connectAudio() && phone.start(Mtu));
    WAIT_UNTIL(board.control.property(QStringLiteral("Streaming")).toBool());
    board.control.call(QStringLiteral("SelectBluetooth"));
    WAIT_UNTIL(board.player.targets().last()
               == QStringLiteral("/Play?url=Capture:bluez:bluetooth:aac/44100/16/2&name=Anna"));

    const QByteArray payload(300, 'a');
    QVERIFY(phone.send(sim::aacPacket(payload)) && phone.send(QByteArray(30, '\xFF'))
            && phone.send(sim::aacPacket("b")));
    const QByteArray expected = QByteArray::fromHex("fff150802"
                                                    "67ffc")
        + payload
        + QByteArray::fromHex("fff1508001"
                              "1ffc")
        + "b";
    WAIT_UNTIL(board.player.heard().size() >= expected.size());
    QCOMPARE(board.player.heard().toHex(), expected.toHex());
}

void StreamingTest::adapterLossEndsTheStream()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    QVERIFY(b.send(packets(0.2)));
    b.board.bluez.removeAdapter();
    WAIT_UNTIL(b.board.player.targets().last() == notification(false, false, "", false));
    WAIT_UNTIL(!b.board.player.audioConnected());
    QVERIFY(b.hears(sim::decodeSbc(packets(0.2))));
    QCOMPARE(b.board.control.property(QStringLiteral("Streaming")), QVariant(false));
}

void StreamingTest::descriptorsAreClosed()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    QVERIFY(b.phone.clear());
    int descriptors = 0;
    for (int round = 0; round < 20; ++round) {
        QVERIFY(b.phone.configure(sim::SbcFormat{}) && b.startHeard());
        QVERIFY(b.send(packets(0.05)));
        if (round % 2 == 0)
            b.phone.suspend();
        QVERIFY(b.phone.clear());
        WAIT_UNTIL(!b.board.player.audioConnected());
        if (round == 0)
            descriptors = b.board.daemon.openDescriptors();
    }
    // Connections to the player come and go: a few more are none of the stream's.
    WAIT_UNTIL(b.board.daemon.openDescriptors() <= descriptors + sim::SparePlayerSockets);
}

QTEST_GUILESS_MAIN(StreamingTest)
#include "tst_streaming.moc"
