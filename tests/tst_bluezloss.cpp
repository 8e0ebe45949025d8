// BlueZ that dies and comes back, and phones that were there before the daemon.

#include "streamingboard.h"

using namespace boardtest;

class BluezLossTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void crashWhileStreaming_data();
    void crashWhileStreaming();
    void phoneThatWasThereBefore();
};

void BluezLossTest::crashWhileStreaming_data()
{
    QTest::addColumn<bool>("gap");
    QTest::newRow("and returns") << true;
    QTest::newRow("replaced without a gap") << false;
}

void BluezLossTest::crashWhileStreaming()
{
    QFETCH(bool, gap);
    sim::Board board;
    QVERIFY(board.startDaemon());
    const auto endpoints = board.bluez.endpoints().size();
    const QList<QByteArray> sent = packets(0.5);
    const QByteArray pcm = sim::decodeSbc(sent);
    [[maybe_unused]] int resident = 0;
    int descriptors = 0;
    for (int round = 0; round < 10; ++round) {
        {
            sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
            phone.connect();
            WAIT_UNTIL(board.player.targets().last() == notification(true, true, "Anna", false));
            QVERIFY(phone.authorize() && phone.configure(sim::SbcFormat{}));
            QVERIFY(board.player.connectAudio() && phone.start(Mtu));
            for (const QByteArray &packet : sent)
                QVERIFY(phone.send(packet));
            // A new codec, and so a new decoder, with each adapter.
            QVERIFY(sim::waitFor([&] { return board.player.heard().size() >= pcm.size(); }));
            QVERIFY(board.player.heard() == pcm);
            WAIT_UNTIL(board.player.targets().last() == notification(true, true, "Anna", true));

            board.player.forgetRequests();
            if (gap)
                board.bluez.crash();
            else
                board.bluez.replace();
            WAIT_UNTIL(!board.player.audioConnected());
            WAIT_UNTIL(board.player.targets()
                       == QStringList({notification(true, false, "", false), notification(false, false, "", false)}));
        }
        QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(false));
        QCOMPARE(board.control.property(QStringLiteral("Connected")), QVariant(false));
        QCOMPARE(board.control.property(QStringLiteral("Streaming")), QVariant(false));
        if (gap)
            board.bluez.restart();
        board.bluez.addAdapter();
        WAIT_UNTIL(board.player.targets().last() == notification(true, false, "", false));
        QCOMPARE(board.bluez.endpoints().size(), endpoints);
        if (round == 1) {
            resident = board.daemon.residentKib();
            descriptors = board.daemon.openDescriptors();
        }
    }
    WAIT_UNTIL(board.daemon.openDescriptors() <= descriptors + sim::SparePlayerSockets);
#ifndef KADO_SANITIZED // which keeps what is freed
    QVERIFY(board.daemon.residentKib() - resident < 512);
#endif
    QCOMPARE(board.daemon.logTexts().filter(QStringLiteral("Device Disconnect:")).size(), 10);
}

void BluezLossTest::phoneThatWasThereBefore()
{
    sim::Board board;
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    sim::Phone later(board.bluez, Hci0 + QStringLiteral("/dev_00_AA_01_02_00_42"), QStringLiteral("Bob"));
    later.connect();
    phone.connect(); // both before the daemon starts
    QVERIFY(board.startDaemon());
    // Told when its name has come, and again when the adapter is ready.
    WAIT_UNTIL(board.player.targets()
               == QStringList({notification(true, true, "Anna", false), notification(true, true, "Anna", false)}));
    QVERIFY(phone.authorize());
    QVERIFY(!later.authorize());
}

QTEST_GUILESS_MAIN(BluezLossTest)
#include "tst_bluezloss.moc"
