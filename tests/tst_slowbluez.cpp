// BlueZ that answers a call late, never, or dies with the answer owed: streams, endpoints, agent and control interface
// go on, and in the end everything is as it should be.

#include "slowboard.h"

#include <QDBusUnixFileDescriptor>

#include <sys/socket.h>

using namespace boardtest;

namespace {

const QString TransportInterface = QStringLiteral("org.bluez.MediaTransport1");
const QString Hci1 = QStringLiteral("/org/bluez/hci1");

constexpr int GivenUpMs = 15'000; // Get and Acquire after 12 s

/// A stream's socket: the phone's end, and the one for the daemon.
struct Ends {
    Ends()
    {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0) {
            here = FileDescriptor(ends[0]);
            there = FileDescriptor(ends[1]);
        }
    }
    bool send(const QByteArray &packet) const
    {
        return ::send(here.get(), packet.constData(), static_cast<size_t>(packet.size()), 0) == packet.size();
    }

    FileDescriptor here;
    FileDescriptor there;
};

void lateOrNever()
{
    QTest::addColumn<bool>("dies");
    QTest::newRow("answers late") << false;
    QTest::newRow("dies") << true;
}

} // namespace

class SlowBluezTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void settingUp_data();
    void settingUp();
    void secondEndpoint_data() { lateOrNever(); }
    void secondEndpoint();
    void nameOfThePhone_data() { lateOrNever(); }
    void nameOfThePhone();
    void renaming_data() { lateOrNever(); }
    void renaming();
    void disconnecting_data() { lateOrNever(); }
    void disconnecting();
    void acquiringAnother_data() { lateOrNever(); }
    void acquiringAnother();

    void answersThatNeverCome();
    void descriptorThatComesTooLate_data();
    void descriptorThatComesTooLate();
    void pauseBeforeTheDescriptor_data();
    void pauseBeforeTheDescriptor();
    void phoneThatLeavesBeforeItsName_data();
    void phoneThatLeavesBeforeItsName();
    void adapterThatGoesEndsItsSetUp_data();
    void adapterThatGoesEndsItsSetUp();
    void demandsDoNotPileUp();
};

void SlowBluezTest::settingUp_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("argument");
    QTest::addColumn<bool>("dies");
    const struct {
        const char *method;
        const char *argument;
    } steps[] = {{"GetManagedObjects", ""},
                 {"Set", "Powered"},
                 {"RegisterAgent", ""},
                 {"RequestDefaultAgent", ""},
                 {"RegisterEndpoint", "/endpoint/0"}};
    for (const auto &step : steps) {
        QTest::addRow("%s%s answered late", step.method, step.argument) << step.method << step.argument << false;
        QTest::addRow("%s%s, BlueZ dies", step.method, step.argument) << step.method << step.argument << true;
    }
}

void SlowBluezTest::settingUp()
{
    QFETCH(QString, method);
    QFETCH(QString, argument);
    QFETCH(bool, dies);
    SlowBoard b;
    b.holdUp(method, argument);
    b.board.daemon.start(b.board.bus.address());
    QVERIFY(b.goesOn(dies));
    QVERIFY(dies ? b.recovers() : b.works());
}

void SlowBluezTest::secondEndpoint()
{
    QFETCH(bool, dies);
    SlowBoard b;
    b.holdUp(QStringLiteral("RegisterEndpoint"), QStringLiteral("/endpoint/1"));
    b.board.daemon.start(b.board.bus.address());
    WAIT_UNTIL(b.board.bluez.endpoints().size() == 1);
    b.phone->connect();
    QVERIFY(b.tells(true, true, "Anna", false) && b.phone->authorize() && b.plays());
    QVERIFY(b.goesOn(dies));
    if (dies)
        QVERIFY(b.recovers());
    QCOMPARE(b.board.bluez.endpoints().size(), 2);
    QVERIFY(b.tells(true, true, "Anna", true) && b.heardAll());
}

void SlowBluezTest::nameOfThePhone()
{
    QFETCH(bool, dies);
    SlowBoard b;
    QVERIFY(b.board.startDaemon());
    b.holdUp(QStringLiteral("Get"));
    b.phone->connect();
    QVERIFY(b.becomes("Connected", true) && b.phone->authorize());
    QVERIFY(b.plays());
    for (const QString &target : b.board.player.targets())
        QCOMPARE(target, notification(true, false, "", false));
    QVERIFY(b.goesOn(dies));
    QVERIFY(!dies || b.recovers());
    QVERIFY(b.tells(true, true, "Anna", true) && b.heardAll());
    WAIT_UNTIL(b.board.daemon.logTexts().contains(QStringLiteral("Active Device: \"%1\" \"Anna\" ").arg(PhonePath)));
}

void SlowBluezTest::renaming()
{
    QFETCH(bool, dies);
    SlowBoard b;
    QVERIFY(b.board.startDaemon() && b.works());
    sim::writePlayerName("Bath\n");
    b.holdUp(QStringLiteral("Set"));
    QVERIFY(b.demand([&] { b.board.control.call(QStringLiteral("ResetAlias")); }));
    QVERIFY(b.goesOn(dies));
    QVERIFY(!dies || b.recovers());
    QCOMPARE(b.board.bluez.property(Hci0, QStringLiteral("org.bluez.Adapter1"), QStringLiteral("Alias")),
             QVariant(QStringLiteral("Bath BT")));
    QVERIFY(b.tells(true, true, "Anna", true) && b.heardAll());
}

void SlowBluezTest::disconnecting()
{
    QFETCH(bool, dies);
    SlowBoard b;
    QVERIFY(b.board.startDaemon() && b.works());
    b.holdUp(QStringLiteral("Disconnect"));
    QVERIFY(b.demand([&] { b.board.control.setProperty(QStringLiteral("Connected"), false); }));
    QVERIFY(b.goesOn(dies));
    QVERIFY(dies ? b.recovers() : b.tells(true, false, "", false));
}

/// A second stream, on the other endpoint, while the first one plays.
void SlowBluezTest::acquiringAnother()
{
    QFETCH(bool, dies);
    SlowBoard b;
    QVERIFY(b.board.startDaemon() && b.works());
    b.holdUp(QStringLiteral("Acquire"));
    const QString path = PhonePath + QStringLiteral("/sep2/fd9");
    b.board.bluez.addObject(path, {{TransportInterface, {{QStringLiteral("State"), QStringLiteral("idle")}}}});
    b.board.bluez.callEndpoint(2, QStringLiteral("SetConfiguration"),
                               {QVariant::fromValue(QDBusObjectPath(path)), QVariantMap()});
    b.board.bluez.setProperty(path, TransportInterface, QStringLiteral("State"), QStringLiteral("pending"));
    QVERIFY(b.goesOn(dies));
    if (dies) {
        QVERIFY(b.recovers());
        return;
    }
    WAIT_UNTIL(!b.board.daemon.logTexts().filter(QStringLiteral("MediaTransport1.Acquire: \"org.bluez")).isEmpty());
    QVERIFY(b.heardAll());
}

void SlowBluezTest::answersThatNeverCome()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    b.phone.disconnect();
    WAIT_UNTIL(b.board.player.targets().last() == notification(true, false, "", false));
    b.board.bluez.swallow(QStringLiteral("Get"));
    b.board.bluez.swallow(QStringLiteral("Acquire"));
    b.phone.connect();
    QVERIFY(b.phone.configure(sim::SbcFormat{}));
    b.board.bluez.setProperty(b.phone.transportPath(), TransportInterface, QStringLiteral("State"),
                              QStringLiteral("pending"));
    QVERIFY(sim::waitFor([&] { return b.board.player.targets().last() == notification(true, true, "", false); },
                         GivenUpMs));
    QVERIFY(sim::waitFor(
        [&] {
            return !b.board.daemon.logTexts()
                        .filter(QStringLiteral("Acquire: \"org.freedesktop.DBus.Error.NoReply\""))
                        .isEmpty();
        },
        GivenUpMs));
    b.board.bluez.stopIntercepting(QStringLiteral("Get"));
    b.board.bluez.stopIntercepting(QStringLiteral("Acquire"));
    QVERIFY(b.playsAnother());
}

void SlowBluezTest::descriptorThatComesTooLate_data()
{
    QTest::addColumn<bool>("cleared");
    QTest::newRow("the stream is idle") << false;
    QTest::newRow("the configuration is cleared") << true;
}

void SlowBluezTest::descriptorThatComesTooLate()
{
    QFETCH(bool, cleared);
    ConfiguredBoard b;
    QVERIFY(b.ready);
    QDBusMessage acquire;
    b.board.bluez.intercept(QStringLiteral("Acquire"), [&](const QDBusMessage &call) {
        acquire = call;
        return true;
    });
    const auto becomes = [&](const char *state) {
        b.board.bluez.setProperty(b.phone.transportPath(), TransportInterface, QStringLiteral("State"),
                                  QLatin1String(state));
    };
    becomes("pending");
    becomes("pending");
    WAIT_UNTIL(b.board.daemon.logTexts().count(QStringLiteral("Transport State = \"pending\" ")) == 2);
    QVERIFY(b.phone.authorize()); // the answer comes behind all calls
    QCOMPARE(b.board.bluez.countCalls(QStringLiteral("Acquire")), 1);
    const int descriptors = settledDescriptors(b.board.daemon);
    if (cleared)
        QVERIFY(b.phone.clear());
    else
        becomes("idle");

    const Ends ends;
    const QByteArray packet = packets(0.1).constFirst();
    QVERIFY(ends.send(packet));
    const QVariant mtu = QVariant::fromValue<ushort>(Mtu);
    b.board.bluez.connection().send(
        acquire.createReply({QVariant::fromValue(QDBusUnixFileDescriptor(ends.there.get())), mtu, mtu}));
    if (!cleared)
        becomes("active"); // behind the answer
    QVERIFY(cleared || b.active());
    WAIT_UNTIL(b.board.daemon.openDescriptors() <= descriptors);
    QByteArray unread(Mtu, '\0');
    QCOMPARE(::recv(ends.there.get(), unread.data(), static_cast<size_t>(unread.size()), 0), packet.size());

    b.board.bluez.stopIntercepting(QStringLiteral("Acquire"));
    if (!cleared)
        becomes("idle");
    QVERIFY(b.playsAnother());
}

void SlowBluezTest::pauseBeforeTheDescriptor_data()
{
    QTest::addColumn<bool>("refused");
    QTest::newRow("it comes after all") << false;
    QTest::newRow("BlueZ refuses it because of the pause") << true;
}

/// The phone pauses and goes on while an Acquire is unanswered.
void SlowBluezTest::pauseBeforeTheDescriptor()
{
    QFETCH(bool, refused);
    ConfiguredBoard b;
    QVERIFY(b.ready && b.board.player.connectAudio());
    QDBusMessage acquire;
    b.board.bluez.intercept(QStringLiteral("Acquire"), [&](const QDBusMessage &call) {
        acquire = call;
        return true;
    });
    const Ends ends;
    b.board.bluez.offerStream(b.phone.transportPath(), ends.there.get(), Mtu);
    for (const char *state : {"pending", "idle", "pending"})
        b.board.bluez.setProperty(b.phone.transportPath(), TransportInterface, QStringLiteral("State"),
                                  QLatin1String(state));
    WAIT_UNTIL(b.board.daemon.logTexts().filter(QStringLiteral("Transport State")).size() == 3);
    QVERIFY(b.phone.authorize()); // the answer comes behind all calls
    QCOMPARE(b.board.bluez.countCalls(QStringLiteral("Acquire")), 1);
    b.board.bluez.stopIntercepting(QStringLiteral("Acquire"));
    if (refused)
        b.board.bluez.connection().send(acquire.createErrorReply(QStringLiteral("org.bluez.Error.Failed"), {}));
    else
        b.board.bluez.answer(acquire);
    QVERIFY(b.active());
    const QList<QByteArray> sent = packets(0.2);
    for (const QByteArray &packet : sent)
        QVERIFY(ends.send(packet));
    QVERIFY(b.hears(sim::decodeSbc(sent)));
}

void SlowBluezTest::phoneThatLeavesBeforeItsName_data()
{
    QTest::addColumn<bool>("same");
    QTest::newRow("and comes back") << true;
    QTest::newRow("and another comes") << false;
}

void SlowBluezTest::phoneThatLeavesBeforeItsName()
{
    QFETCH(bool, same);
    sim::Board board;
    QVERIFY(board.startDaemon());
    QDBusMessage get;
    board.bluez.intercept(QStringLiteral("Get"), [&](const QDBusMessage &call) {
        get = call;
        return true;
    });
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    phone.connect();
    WAIT_UNTIL(board.bluez.countCalls(QStringLiteral("Get")) == 1);
    QVERIFY(phone.authorize());
    phone.disconnect();
    WAIT_UNTIL(board.player.targets().size() == 2);
    QVERIFY(!phone.authorize());
    board.bluez.stopIntercepting(QStringLiteral("Get"));

    sim::Phone other(board.bluez, Hci0 + QStringLiteral("/dev_00_AA_01_02_00_42"), QStringLiteral("Bob"));
    (same ? phone : other).connect();
    QVERIFY((same ? phone : other).authorize());
    board.bluez.connection().send(get.createErrorReply(QStringLiteral("org.bluez.Error.DoesNotExist"), {}));
    WAIT_UNTIL(board.player.targets().size() == 3);
    const QString none = notification(true, false, "", false);
    const char *name = same ? "Anna" : "Bob";
    QCOMPARE(board.player.targets(), QStringList({none, none, notification(true, true, name, false)}));
    QCOMPARE(board.control.property(QStringLiteral("Name")), QVariant(QLatin1String(name)));
}

void SlowBluezTest::adapterThatGoesEndsItsSetUp_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("argument");
    QTest::newRow("first step") << "Set"
                                << "Alias";
    QTest::newRow("power") << "Set"
                           << "Powered";
    QTest::newRow("first endpoint") << "RegisterEndpoint"
                                    << "/endpoint/0";
    QTest::newRow("last step") << "RegisterEndpoint"
                               << "/endpoint/1";
}

void SlowBluezTest::adapterThatGoesEndsItsSetUp()
{
    QFETCH(QString, method);
    QFETCH(QString, argument);
    sim::Board board;
    board.bluez.addAdapter(Hci1);
    QDBusMessage held;
    board.bluez.intercept(method, [&](const QDBusMessage &call) {
        const sim::BluezCall &latest = board.bluez.calls().constLast();
        if (latest.path != Hci0 || !latest.text().contains(argument))
            return false;
        held = call;
        return true;
    });
    board.daemon.start(board.bus.address());
    WAIT_UNTIL(held.type() == QDBusMessage::MethodCallMessage);
    board.bluez.forgetCalls();
    board.bluez.removeAdapter();
    board.bluez.connection().send(held.createErrorReply(QStringLiteral("org.bluez.Error.NotReady"), {}));
    WAIT_UNTIL(board.player.targets()
               == QStringList({notification(false, false, "", false), notification(true, false, "", false)}));
    QCOMPARE(board.bluez.endpoints().size(), 2);
    for (const sim::BluezCall &call : board.bluez.calls())
        QVERIFY2(call.path != Hci0, qPrintable(call.text()));
}

void SlowBluezTest::demandsDoNotPileUp()
{
    constexpr int Demands = 10;
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    phone.connect();
    WAIT_UNTIL(board.player.targets().size() == 2);
    board.bluez.forgetCalls();
    QList<QDBusMessage> held;
    for (const char *method : {"Set", "Disconnect"}) {
        board.bluez.intercept(QLatin1String(method), [&](const QDBusMessage &call) {
            held.append(call);
            return true;
        });
    }
    for (int i = 0; i < Demands; ++i) {
        sim::writePlayerName(QByteArray("Room ") + QByteArray::number(i) + '\n');
        board.control.call(QStringLiteral("ResetAlias"));
        board.control.setProperty(QStringLiteral("Connected"), false);
    }
    QVERIFY(phone.authorize()); // the answer comes behind all calls
    QCOMPARE(board.bluez.countCalls(QStringLiteral("Set")), 1);
    QCOMPARE(board.bluez.countCalls(QStringLiteral("Disconnect")), 1);
    board.bluez.stopIntercepting(QStringLiteral("Set"));
    for (const QDBusMessage &call : std::as_const(held))
        board.bluez.answer(call);
    WAIT_UNTIL(board.bluez.property(Hci0, QStringLiteral("org.bluez.Adapter1"), QStringLiteral("Alias"))
               == QVariant(QStringLiteral("Room 9 BT")));
    QCOMPARE(board.bluez.countCalls(QStringLiteral("Set")), 2);
    WAIT_UNTIL(board.player.targets().last() == notification(true, false, "", false));
}

QTEST_GUILESS_MAIN(SlowBluezTest)
#include "tst_slowbluez.moc"
