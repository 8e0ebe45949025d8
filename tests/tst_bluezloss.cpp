// BlueZ that dies and comes back, and phones that were there before the daemon.

#include "boardtest.h"

#include <cmath>

using namespace boardtest;

namespace {

constexpr int Mtu = 672;

QList<QByteArray> packets()
{
    QByteArray pcm;
    for (int i = 0; i < 22050; ++i) {
        const auto sample = static_cast<qint16>(9000 * std::sin(i * 0.05));
        for (int channel = 0; channel < 2; ++channel)
            pcm.append(reinterpret_cast<const char *>(&sample), sizeof sample);
    }
    return sim::encodeSbc(pcm, {}, Mtu);
}

} // namespace

class BluezLossTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void crashWhileStreaming();
    void phoneThatWasThereBefore();
};

void BluezLossTest::crashWhileStreaming()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    const QList<QByteArray> sent = packets();
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

            board.bluez.crash();
            WAIT_UNTIL(board.player.targets().last() == notification(false, false, "", false));
            WAIT_UNTIL(!board.player.audioConnected());
        }
        QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(false));
        QCOMPARE(board.control.property(QStringLiteral("Connected")), QVariant(false));
        QCOMPARE(board.control.property(QStringLiteral("Streaming")), QVariant(false));
        board.bluez.restart();
        board.bluez.addAdapter();
        WAIT_UNTIL(board.player.targets().last() == notification(true, false, "", false));
        QCOMPARE(board.bluez.endpoints().size(), 2);
        if (round == 1) {
            resident = board.daemon.residentKib();
            descriptors = board.daemon.openDescriptors();
        }
    }
    WAIT_UNTIL(board.daemon.openDescriptors() <= descriptors + 2);
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
    WAIT_UNTIL(board.player.targets()
               == QStringList({notification(true, false, "", false), notification(true, true, "Anna", false)}));
    QVERIFY(phone.authorize());
    QVERIFY(!later.authorize());
}

QTEST_GUILESS_MAIN(BluezLossTest)
#include "tst_bluezloss.moc"
