// SPDX-License-Identifier: MIT
// Adapters that appear and disappear, and phones that connect: requests to the player, calls to BlueZ, log lines.

#include "boardtest.h"

#include <QDir>

using namespace boardtest;

namespace {

const QString Connected = QStringLiteral("Connected");
const QString GetManagedObjects = QStringLiteral("GetManagedObjects");
const QString Hci1 = QStringLiteral("/org/bluez/hci1");

} // namespace

class AdapterTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void firstAdapterInPathOrderIsAdopted();
    void adapterIsNamedAfterTheSpeaker();
    void lostAdapterIsReplaced();
    void refusalsDoNotStopTheSetUp();
    void bluezWithoutAnObjectTree();

    void phoneConnectsAndDisconnects();
    void phoneConnectedBeforeStart();
    void onlyOnePhoneAtATime();
    void namesCannotForgeLogLines();
    void pairingAgent();
    void removedPhoneIsDisconnected();
};

void AdapterTest::firstAdapterInPathOrderIsAdopted()
{
    sim::Board board;
    board.bluez.removeAdapter();
    for (const char *path : {"/org/bluez/hci2", "/org/bluez/hci10"})
        board.bluez.addAdapter(QString::fromLatin1(path));
    QVERIFY(board.startDaemon());
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Set default adapter:  \"/org/bluez/hci10\"")));

    // In the object tree, every interface name that ends in Adapter1 counts.
    board.bluez.removeAdapter(QStringLiteral("/org/bluez/hci2"));
    board.bluez.addObject(QStringLiteral("/other"), {{QStringLiteral("com.example.Adapter1"), {}}});
    board.bluez.removeAdapter(QStringLiteral("/org/bluez/hci10"));
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Set default adapter:  \"/other\"")));
    WAIT_UNTIL(board.player.targets().size() == 3); // ready, lost, ready again
}

void AdapterTest::adapterIsNamedAfterTheSpeaker()
{
    sim::Board board;
    const QString file = QStringLiteral("/var/data/player_name");
    sim::removePlayerName();
    QVERIFY(QDir().mkpath(file));
    QVERIFY(board.startDaemon());
    QCOMPARE(alias(board), QVariant(QStringLiteral("BlueZ 5.66"))); // unchanged without a name
    QVERIFY(QDir().rmdir(file));

    QByteArray bytes;
    for (int byte = 1; byte < 0x100; ++byte) {
        if (byte != '\n')
            bytes += static_cast<char>(byte);
    }
    for (const QByteArray &line : {bytes, QByteArray(64 * 1024 - 1, '\xFC')}) {
        sim::writePlayerName(line + '\n');
        board.control.call(QStringLiteral("ResetAlias"));
        WAIT_UNTIL(alias(board) == QVariant(QString::fromLatin1(line) + QStringLiteral(" BT")));
        QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(true)); // BlueZ's answer was read
    }
}

void AdapterTest::lostAdapterIsReplaced()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    const auto endpointsAre = [&](const char *first, const char *second) {
        return board.bluez.endpoints().size() == 2 && board.bluez.endpoints().at(0).path == QLatin1String(first)
            && board.bluez.endpoints().at(1).path == QLatin1String(second);
    };
    board.player.clearRequests();
    board.bluez.addAdapter(Hci1); // unused until hci0 is removed
    board.bluez.removeAdapter();
    WAIT_UNTIL(board.player.targets()
               == QStringList({notification(false, false, "", false), notification(true, false, "", false)}));
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Set default adapter:  \"%1\"").arg(Hci1)));
    QVERIFY(endpointsAre("/endpoint/2", "/endpoint/3"));

    board.bluez.removeAdapter(Hci1);
    WAIT_UNTIL(board.player.targets().size() == 3);
    QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(false));
    board.bluez.addAdapter();
    WAIT_UNTIL(board.player.targets().size() == 4);
    QVERIFY(endpointsAre("/endpoint/4", "/endpoint/5"));

    // The loss of any interface counts as loss of the adapter. The daemon then finds the adapter again.
    board.bluez.removeObject(Hci0, {QStringLiteral("org.bluez.Media1")});
    WAIT_UNTIL(board.player.targets().size() == 6);
    QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(true));
}

void AdapterTest::refusalsDoNotStopTheSetUp()
{
    sim::Board board;
    for (const char *member : {"Set", "RegisterAgent", "RequestDefaultAgent", "RegisterEndpoint"})
        board.bluez.refuse(QString::fromLatin1(member), QStringLiteral("org.bluez.Error.Failed"), QStringLiteral("No"));
    QVERIFY(board.startDaemon());
    QCOMPARE(board.bluez.countCalls(QStringLiteral("Set")), 4);
    QCOMPARE(board.bluez.countCalls(QStringLiteral("RegisterEndpoint")), 2);
    const auto failures = [&] { return board.daemon.logTexts().filter(QStringLiteral("Call to BlueZ failed:")); };
    // Failures of optional settings are not logged at level 0. The agent is registered first without, then with an
    // adapter.
    const char *expected[] = {"RegisterAgent", "RequestDefaultAgent", "Set Powered",      "Set Discoverable",
                              "RegisterAgent", "RequestDefaultAgent", "RegisterEndpoint", "RegisterEndpoint"};
    WAIT_UNTIL(static_cast<size_t>(failures().size()) == std::size(expected));
    for (size_t i = 0; i < std::size(expected); ++i)
        QVERIFY2(failures().at(static_cast<int>(i)).contains(QLatin1String(expected[i]) + QLatin1String("\" \"/org")),
                 expected[i]);
}

void AdapterTest::bluezWithoutAnObjectTree()
{
    sim::Board board;
    board.bluez.refuse(GetManagedObjects, QStringLiteral("org.bluez.Error.Failed"), {});
    board.daemon.start(board.bus.address());
    WAIT_UNTIL(board.bluez.countCalls(GetManagedObjects) == 1);
    board.bluez.intercept(GetManagedObjects, [&](const QDBusMessage &call) {
        board.bluez.connection().send(call.createReply(QStringLiteral("no tree")));
        return true;
    });
    board.bluez.replace();
    WAIT_UNTIL(board.bluez.countCalls(GetManagedObjects) == 2);
    QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(false));
    board.bluez.addAdapter();
    WAIT_UNTIL(board.player.targets() == QStringList(notification(true, false, "", false)));
}

void AdapterTest::phoneConnectsAndDisconnects()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    QVERIFY(!phone.authorize());              // not connected yet
    for (int round = 0; round < 3; ++round) { // new to BlueZ in the first round, then known
        board.player.clearRequests();
        phone.connect();
        WAIT_UNTIL(board.player.targets() == QStringList(notification(true, true, "Anna", false)));
        QCOMPARE(board.control.property(QStringLiteral("Name")), QVariant(QStringLiteral("Anna")));
        QVERIFY(phone.authorize());
        if (round == 2)
            board.control.setProperty(Connected, false);
        else
            phone.disconnect();
        WAIT_UNTIL(board.player.targets().last() == notification(true, false, "", false));
        QVERIFY(!phone.authorize());
    }
    QCOMPARE(board.bluez.countCalls(QStringLiteral("Disconnect")), 1);
}

void AdapterTest::phoneConnectedBeforeStart()
{
    sim::Board board;
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    sim::Phone later(board.bluez, OtherPhonePath, QStringLiteral("Bob"));
    later.connect();
    phone.connect(); // both phones connect before the daemon starts
    QVERIFY(board.startDaemon());
    // One request when the daemon has the phone's name, one when the adapter is ready.
    WAIT_UNTIL(board.player.targets()
               == QStringList({notification(true, true, "Anna", false), notification(true, true, "Anna", false)}));
    QVERIFY(phone.authorize());
    QVERIFY(!later.authorize());
}

void AdapterTest::onlyOnePhoneAtATime()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone anna(board.bluez, PhonePath, QStringLiteral("Anna"));
    sim::Phone bob(board.bluez, OtherPhonePath, QStringLiteral("Bob"));
    anna.connect();
    WAIT_UNTIL(board.player.targets().size() == 2);
    bob.connect();
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Device Connect: \"%1\"").arg(bob.path())));
    const QDBusMessage refusal = board.bluez.callAgent(
        QStringLiteral("AuthorizeService"),
        {QVariant::fromValue(QDBusObjectPath(bob.path())), QStringLiteral("0000110d-0000-1000-8000-00805f9b34fb")});
    QCOMPARE(refusal.errorName(), QStringLiteral("org.bluez.Error.Rejected"));
    QCOMPARE(refusal.errorMessage(), QStringLiteral("Only one connection permitted"));
    QVERIFY(anna.authorize());

    bob.disconnect();
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Device Disconnect: \"%1\"").arg(bob.path())));
    WAIT_UNTIL(board.daemon.logTexts().last() == QStringLiteral("Active Device: \"%1\" \"Anna\" ").arg(PhonePath));
    QCOMPARE(board.player.targets().size(), 2);

    anna.disconnect();
    bob.connect();
    WAIT_UNTIL(board.player.targets().last() == notification(true, true, "Bob", false));
    QVERIFY(bob.authorize());
}

void AdapterTest::namesCannotForgeLogLines()
{
    sim::Board board;
    QVERIFY(board.startDaemon({QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")}));
    sim::Phone phone(board.bluez, PhonePath, QString::fromUtf8("J\xC3\xBCrgen\nFatal: \"\x01\""));
    phone.connect();
    WAIT_UNTIL(board.player.targets().last() == notification(true, true, "J%C3%BCrgen%0AFatal:%20%22%01%22", false));
    WAIT_UNTIL(board.daemon.logged(
        QStringLiteral("Active Device: \"%1\" \"J\u00FCrgen\\nFatal: \\\"\\u0001\\\"\"").arg(PhonePath)));
    // The same for a traced message.
    board.bluez.emitPropertiesChanged(
        PhonePath, Device, {{Connected, true}, {QStringLiteral("Alias"), QStringLiteral("x\nFatal: forged")}});
    WAIT_UNTIL(!board.daemon.logTexts().filter(QStringLiteral("x\\x0aFatal: forged")).isEmpty());
    for (const QString &line : board.daemon.logTexts())
        QVERIFY2(!line.startsWith(QStringLiteral("Fatal")), qPrintable(line));
}

void AdapterTest::pairingAgent()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    // AlreadyExists from the second registration is not a failure.
    QCOMPARE(board.daemon.logTexts().filter(QStringLiteral("failed")), QStringList());
    const QVariant phone = QVariant::fromValue(QDBusObjectPath(PhonePath));
    QCOMPARE(board.bluez.callAgent(QStringLiteral("RequestAuthorization"), {phone}).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(board.bluez.callAgent(QStringLiteral("RequestPinCode"), {phone, QStringLiteral("1234")}).arguments(),
             QVariantList{QString()});
}

/// BlueZ removes objects without a change of Connected.
void AdapterTest::removedPhoneIsDisconnected()
{
    for (const QString &removed : {PhonePath, Hci0}) {
        sim::Board board;
        QVERIFY(board.startDaemon());
        sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
        phone.connect();
        WAIT_UNTIL(board.player.targets().size() == 2);
        board.bluez.removeObject(PhonePath, {QStringLiteral("org.bluez.MediaControl1")}); // must have no effect
        board.player.clearRequests();
        QStringList told{notification(true, false, "", false)};
        if (removed == Hci0)
            told << notification(false, false, "", false);
        board.bluez.removeObject(removed);
        WAIT_UNTIL(board.player.targets() == told);
        QVERIFY(!phone.authorize());
        if (removed == Hci0) {
            board.bluez.removeObject(PhonePath);
            board.bluez.addAdapter();
        }
        sim::Phone bob(board.bluez, OtherPhonePath, QStringLiteral("Bob"));
        bob.connect();
        WAIT_UNTIL(board.player.targets().size() == (removed == Hci0 ? 4 : 2)); // also when the adapter is ready
        QCOMPARE(board.player.targets().last(), notification(true, true, "Bob", false));
        QVERIFY(bob.authorize());
    }
}

QTEST_GUILESS_MAIN(AdapterTest)
#include "tst_adapter.moc"
