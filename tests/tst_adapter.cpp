// Adapters that come and go, and phones that connect: what the player, BlueZ and the log see of it.

#include "boardtest.h"

using namespace boardtest;

namespace {

const QString Adapter = QStringLiteral("org.bluez.Adapter1");
const QString Connected = QStringLiteral("Connected");

QVariant alias(const sim::Board &board)
{
    return board.bluez.property(Hci0, Adapter, QStringLiteral("Alias"));
}

} // namespace

class AdapterTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void firstAdapterInPathOrderIsAdopted();
    void adapterIsNamedAfterTheSpeaker_data();
    void adapterIsNamedAfterTheSpeaker();
    void lostAdapterIsReplaced();
    void anyLostInterfaceCountsAsLoss();
    void refusalsDoNotStopTheSetUp();
    void silentBluezAtStart();

    void unknownPhoneConnects();
    void knownPhoneConnects();
    void onlyOnePhoneAtATime();
    void otherNoticesChangeNothing();
    void phoneWithoutAlias();
    void phoneNamesReachThePlayer();
    void pairingAgent();
    void disconnectOnDemand();
    void phoneGoesWithItsObjects_data();
    void phoneGoesWithItsObjects();
};

void AdapterTest::firstAdapterInPathOrderIsAdopted()
{
    sim::Board board;
    board.bluez.removeAdapter();
    for (const char *path : {"/org/bluez/hci2", "/org/bluez/hci10", "/org/bluez/hci3"})
        board.bluez.addAdapter(QString::fromLatin1(path));
    QVERIFY(board.startDaemon());
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Set default adapter:  \"/org/bluez/hci10\"")));

    // Any interface name that ends like an adapter's counts in the tree, only BlueZ's own in an announcement.
    board.player.forgetRequests();
    board.bluez.removeAdapter(QStringLiteral("/org/bluez/hci2"));
    board.bluez.removeAdapter(QStringLiteral("/org/bluez/hci3"));
    board.bluez.addObject(QStringLiteral("/other"), {{QStringLiteral("com.example.Adapter1"), {}}});
    board.bluez.removeAdapter(QStringLiteral("/org/bluez/hci10"));
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Set default adapter:  \"/other\"")));
    WAIT_UNTIL(board.player.targets().size() == 2);
    board.bluez.removeObject(QStringLiteral("/other"));
    WAIT_UNTIL(board.player.targets().size() == 3 && board.bluez.countCalls(QStringLiteral("GetManagedObjects")) == 3);
    board.bluez.addObject(QStringLiteral("/other"), {{QStringLiteral("com.example.Adapter1"), {}}});
    QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(false));
}

void AdapterTest::adapterIsNamedAfterTheSpeaker_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("expected");
    QTest::newRow("usual") << QByteArray("Living room\n") << "Living room BT";
    QTest::newRow("carriage return stays") << QByteArray("Living room\r\n") << "Living room\r BT";
    QTest::newRow("empty line keeps BlueZ's own") << QByteArray("\n") << "BlueZ 5.66";
    QTest::newRow("control characters and quotes") << QByteArray("a\x01\"\x7F\n") << QStringLiteral("a\x01\"\x7F BT");
}

void AdapterTest::adapterIsNamedAfterTheSpeaker()
{
    QFETCH(QByteArray, content);
    sim::Board board;
    sim::writePlayerName(content);
    QVERIFY(board.startDaemon());
    QTEST(alias(board).toString(), "expected");
}

void AdapterTest::lostAdapterIsReplaced()
{
    sim::Board board;
    sim::removePlayerName();
    QVERIFY(board.startDaemon());
    QCOMPARE(alias(board), QVariant(QStringLiteral("BlueZ 5.66")));
    const auto endpoints = board.bluez.endpoints().size();
    const auto path = [](qsizetype number) { return QStringLiteral("/endpoint/%1").arg(number); };

    board.player.forgetRequests();
    board.bluez.addAdapter(QStringLiteral("/org/bluez/hci1")); // not wanted yet, and not forgotten
    board.bluez.removeAdapter();
    WAIT_UNTIL(board.player.targets()
               == QStringList({notification(false, false, "", false), notification(true, false, "", false)}));
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Set default adapter:  \"/org/bluez/hci1\"")));
    QCOMPARE(board.bluez.endpoints().size(), endpoints);
    QCOMPARE(board.bluez.endpoints().constFirst().path, path(endpoints));
    QCOMPARE(board.bluez.endpoints().constLast().path, path(2 * endpoints - 1));

    board.bluez.removeAdapter(QStringLiteral("/org/bluez/hci1"));
    WAIT_UNTIL(board.player.targets().size() == 3);
    QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(false));
    board.bluez.addAdapter();
    WAIT_UNTIL(board.player.targets().size() == 4);
    QCOMPARE(board.bluez.endpoints().constFirst().path, path(2 * endpoints));
}

void AdapterTest::anyLostInterfaceCountsAsLoss()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    board.bluez.removeObject(Hci0, {QStringLiteral("org.bluez.Media1")});
    WAIT_UNTIL(board.player.targets().size() == 3);
    QCOMPARE(board.bluez.countCalls(QStringLiteral("GetManagedObjects")), 2);
    QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(true));
}

void AdapterTest::refusalsDoNotStopTheSetUp()
{
    sim::Board board;
    for (const char *member : {"Set", "RegisterAgent", "RequestDefaultAgent", "RegisterEndpoint"})
        board.bluez.refuse(QString::fromLatin1(member), QStringLiteral("org.bluez.Error.Failed"), QStringLiteral("No"));
    QVERIFY(board.startDaemon());
    QCOMPARE(board.bluez.countCalls(QStringLiteral("Set")), 4);
    QVERIFY(board.bluez.countCalls(QStringLiteral("RegisterEndpoint")) > 1);
    const auto failed = [](const char *call, const char *object) {
        return QStringLiteral("Call to BlueZ failed: \"%1\" \"%2\" \"org.bluez.Error.Failed\" \"No\" ")
            .arg(QLatin1String(call), QLatin1String(object));
    };
    const QStringList expected{
        failed("RegisterAgent", "/org/bluez"),         failed("RequestDefaultAgent", "/org/bluez"), // at start
        failed("Set Powered", "/org/bluez/hci0"),      failed("Set Discoverable", "/org/bluez/hci0"),
        failed("RegisterAgent", "/org/bluez"),         failed("RequestDefaultAgent", "/org/bluez"),
        failed("RegisterEndpoint", "/org/bluez/hci0"), failed("RegisterEndpoint", "/org/bluez/hci0")};
    WAIT_UNTIL(board.daemon.logTexts().filter(QStringLiteral("Call to BlueZ failed:")) == expected);
}

void AdapterTest::silentBluezAtStart()
{
    sim::Board board;
    board.bluez.refuse(QStringLiteral("GetManagedObjects"), QStringLiteral("org.bluez.Error.Failed"), {});
    board.daemon.start(board.bus.address());
    WAIT_UNTIL(board.bluez.countCalls(QStringLiteral("GetManagedObjects")) == 1);
    QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(false));

    board.bluez.intercept(QStringLiteral("GetManagedObjects"), [&](const QDBusMessage &call) {
        board.bluez.connection().send(call.createReply(QStringLiteral("no tree")));
        return true;
    });
    board.daemon.stop();
    board.daemon.start(board.bus.address(),
                       {QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")});
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("GetManagedObjects: unexpected types \"s\"")));
    QCOMPARE(board.control.property(QStringLiteral("AdapterPresent")), QVariant(false));
}

void AdapterTest::unknownPhoneConnects()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    phone.connect();
    WAIT_UNTIL(board.player.targets().contains(notification(true, true, "Anna", false)));
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Device Connect: \"%1\"").arg(PhonePath)));
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Active Device: \"%1\" \"Anna\"").arg(PhonePath)));
    QCOMPARE(board.control.property(Connected), QVariant(true));
    QCOMPARE(board.control.property(QStringLiteral("Name")), QVariant(QStringLiteral("Anna")));
    QVERIFY(phone.authorize());
}

void AdapterTest::knownPhoneConnects()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    QVERIFY(!phone.authorize()); // nobody is connected
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Rejected")));
    for (int round = 0; round < 2; ++round) {
        board.player.forgetRequests();
        phone.connect();
        WAIT_UNTIL(board.player.targets() == QStringList(notification(true, true, "Anna", false)));
        QVERIFY(phone.authorize());
        phone.disconnect();
        WAIT_UNTIL(board.player.targets().last() == notification(true, false, "", false));
        WAIT_UNTIL(board.daemon.logged(QStringLiteral("Device Disconnect: \"%1\"").arg(PhonePath)));
        QVERIFY(!phone.authorize());
    }
}

void AdapterTest::onlyOnePhoneAtATime()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone anna(board.bluez, PhonePath, QStringLiteral("Anna"));
    sim::Phone bob(board.bluez, Hci0 + QStringLiteral("/dev_00_AA_01_02_00_42"), QStringLiteral("Bob"));
    anna.connect();
    WAIT_UNTIL(board.player.targets().size() == 2);
    bob.connect();
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Device Connect: \"%1\"").arg(bob.path())));
    WAIT_UNTIL(board.daemon.logTexts().last() == QStringLiteral("Active Device: \"%1\" \"Anna\" ").arg(PhonePath));

    const QDBusMessage refusal = board.bluez.callAgent(
        QStringLiteral("AuthorizeService"),
        {QVariant::fromValue(QDBusObjectPath(bob.path())), QStringLiteral("0000110d-0000-1000-8000-00805f9b34fb")});
    QCOMPARE(refusal.errorName(), QStringLiteral("org.bluez.Error.Rejected"));
    QCOMPARE(refusal.errorMessage(), QStringLiteral("Only one connection permitted"));
    QVERIFY(anna.authorize());

    bob.disconnect();
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Device Disconnect: \"%1\"").arg(bob.path())));
    QCOMPARE(board.player.targets().size(), 2);
    QCOMPARE(board.control.property(QStringLiteral("Name")), QVariant(QStringLiteral("Anna")));

    anna.disconnect();
    bob.connect();
    WAIT_UNTIL(board.player.targets().last() == notification(true, true, "Bob", false));
    QVERIFY(bob.authorize());
}

void AdapterTest::otherNoticesChangeNothing()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    phone.connect();
    WAIT_UNTIL(board.player.targets().size() == 2);
    board.bluez.emitPropertiesChanged(PhonePath, QStringLiteral("org.bluez.MediaControl1"), {{Connected, false}});
    board.bluez.emitPropertiesChanged(PhonePath, Device, {{QStringLiteral("Alias"), QStringLiteral("Annika")}});
    board.bluez.emitPropertiesChanged(PhonePath, Device, {{Connected, QStringLiteral("false")}});
    board.bluez.emitPropertiesChanged(PhonePath, Device, {{Connected, QStringList(QStringLiteral("no"))}});
    board.bluez.addObject(Hci0 + QStringLiteral("/dev_X"), {{Device, {{Connected, QStringLiteral("true")}}}});
    board.bluez.addObject(Hci0 + QStringLiteral("/dev_Y"), {{Device, {{Connected, false}}}});
    QCOMPARE(board.control.property(Connected), QVariant(true));
    QCOMPARE(board.control.property(QStringLiteral("Name")), QVariant(QStringLiteral("Anna")));
    QCOMPARE(board.player.targets().size(), 2);
}

void AdapterTest::phoneWithoutAlias()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    board.bluez.refuse(QStringLiteral("Get"), QStringLiteral("org.bluez.Error.Failed"), {});
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    phone.connect();
    WAIT_UNTIL(board.player.targets().last() == notification(true, true, "", false));
    QVERIFY(phone.authorize());
}

void AdapterTest::phoneNamesReachThePlayer()
{
    sim::Board board;
    QVERIFY(board.startDaemon({QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")}));
    const struct {
        QString alias;
        const char *sent;
    } names[] = {
        {QStringLiteral("Bob & Co"), "Bob%20&%20Co"},
        {QString::fromUtf8("J\xC3\xBCrgen\nFatal: \"\x01\""), "J%C3%BCrgen%0AFatal:%20%22%01%22"},
    };
    for (const auto &name : names) {
        sim::Phone phone(board.bluez, PhonePath, name.alias);
        board.bluez.removeObject(PhonePath);
        phone.connect();
        WAIT_UNTIL(board.player.targets().last() == notification(true, true, name.sent, false));
        phone.disconnect();
        WAIT_UNTIL(board.player.targets().last() == notification(true, false, "", false));
    }
    // A name cannot forge a line of the log, also where a whole message is traced.
    board.bluez.emitPropertiesChanged(
        PhonePath, Device, {{Connected, true}, {QStringLiteral("Alias"), QStringLiteral("x\nFatal: forged")}});
    WAIT_UNTIL(!board.daemon.logTexts().filter(QStringLiteral("x\\x0aFatal: forged")).isEmpty());
    for (const QString &line : board.daemon.logTexts())
        QVERIFY2(!line.startsWith(QStringLiteral("Fatal")), qPrintable(line));
    WAIT_UNTIL(board.daemon.logged(
        QStringLiteral("Active Device: \"%1\" \"J\u00FCrgen\\nFatal: \\\"\\u0001\\\"\"").arg(PhonePath)));
}

void AdapterTest::pairingAgent()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    QCOMPARE(board.bluez.agentPath(), QStringLiteral("/Nodera/BluetoothAgent"));
    // That it is there already when it is registered again is no fault.
    QCOMPARE(board.daemon.logTexts().filter(QStringLiteral("failed")), QStringList());
    const QVariant phone = QVariant::fromValue(QDBusObjectPath(PhonePath));
    QCOMPARE(board.bluez.callAgent(QStringLiteral("RequestAuthorization"), {phone}).type(), QDBusMessage::ReplyMessage);
    WAIT_UNTIL(board.daemon.logged(QStringLiteral("Agent1::RequestAuthorization \"%1\"").arg(PhonePath)));
    QCOMPARE(board.bluez.callAgent(QStringLiteral("RequestPinCode"), {phone, QStringLiteral("1234")}).arguments(),
             QVariantList{QString()});
    QCOMPARE(board.bluez.callAgent(QStringLiteral("Release"), {}).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(board.bluez.callAgent(QStringLiteral("RequestConfirmation"), {phone, 1U}).errorName(),
             QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"));
}

void AdapterTest::disconnectOnDemand()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    phone.connect();
    WAIT_UNTIL(board.player.targets().size() == 2);
    board.control.setProperty(Connected, true);
    QCOMPARE(board.bluez.countCalls(QStringLiteral("Disconnect")), 0);
    board.control.setProperty(Connected, false);
    WAIT_UNTIL(board.bluez.countCalls(QStringLiteral("Disconnect")) == 1);
    QCOMPARE(board.bluez.calls().last().path, PhonePath);
    WAIT_UNTIL(board.player.targets().last() == notification(true, false, "", false));
}

void AdapterTest::phoneGoesWithItsObjects_data()
{
    QTest::addColumn<QString>("removed");
    QTest::newRow("the phone's own") << PhonePath;
    QTest::newRow("its adapter's") << Hci0;
}

/// BlueZ takes them away without a word on the connection.
void AdapterTest::phoneGoesWithItsObjects()
{
    QFETCH(QString, removed);
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    phone.connect();
    WAIT_UNTIL(board.player.targets().size() == 2);
    board.bluez.removeObject(PhonePath, {QStringLiteral("org.bluez.MediaControl1")}); // not the phone
    board.player.forgetRequests();
    board.bluez.removeObject(removed);
    WAIT_UNTIL(board.player.targets().size() == (removed == Hci0 ? 2 : 1));
    QCOMPARE(board.player.targets().constFirst(), notification(true, false, "", false));
    QVERIFY(!phone.authorize());
    if (removed == Hci0) {
        QCOMPARE(board.player.targets().constLast(), notification(false, false, "", false));
        board.bluez.removeObject(PhonePath);
        board.bluez.addAdapter();
    }
    sim::Phone bob(board.bluez, Hci0 + QStringLiteral("/dev_00_AA_01_02_00_42"), QStringLiteral("Bob"));
    bob.connect();
    WAIT_UNTIL(board.player.targets().contains(notification(true, true, "Bob", false)));
    QVERIFY(bob.authorize());
}

QTEST_GUILESS_MAIN(AdapterTest)
#include "tst_adapter.moc"
