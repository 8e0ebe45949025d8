// SPDX-License-Identifier: MIT
// BlueZ that answers a call late, never, or dies with the answer owed: streams, endpoints, agent and control interface
// go on, and in the end everything is as it should be.

#include "streamingboard.h"

#include <QDBusUnixFileDescriptor>
#include <QElapsedTimer>

#include <sys/socket.h>

using namespace boardtest;

namespace {

constexpr int GivenUpMs = 15'000; // Get and Acquire after 12 s

/// A stream's socket, as BlueZ does not hand it out: the daemon's end blocks.
struct Ends {
    Ends()
    {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
            qFatal("socketpair");
        here = FileDescriptor(ends[0]);
        there = FileDescriptor(ends[1]);
    }
    bool send(const QByteArray &packet) const
    {
        return ::send(here.get(), packet.constData(), static_cast<size_t>(packet.size()), 0) == packet.size();
    }

    FileDescriptor here;
    FileDescriptor there;
};

QDBusMessage acquireReply(const QDBusMessage &acquire, const Ends &ends)
{
    const QVariant mtu = QVariant::fromValue<ushort>(Mtu);
    return acquire.createReply({QVariant::fromValue(QDBusUnixFileDescriptor(ends.there.get())), mtu, mtu});
}

/// Calls of one method that BlueZ leaves unanswered, from now until stop() or the end of this object.
class HeldCalls {
public:
    /// Only calls with this text in their line (see sim::BluezCall) are held.
    HeldCalls(sim::FakeBluez &bluez, const char *method, const QString &text = {})
        : bluez_(bluez), method_(QLatin1String(method))
    {
        bluez_.intercept(method_, [this, text](const QDBusMessage &call) {
            if (!bluez_.calls().constLast().text().contains(text))
                return false;
            calls_.append(call);
            return true;
        });
    }
    ~HeldCalls() { stop(); }
    HeldCalls(const HeldCalls &) = delete;
    HeldCalls &operator=(const HeldCalls &) = delete;

    bool arrived() const { return !calls_.isEmpty(); }
    const QList<QDBusMessage> &calls() const { return calls_; }

    /// The next ones are answered as usual.
    void stop() { bluez_.stopIntercepting(method_); }
    /// The answers come at last.
    void answer()
    {
        stop();
        for (const QDBusMessage &call : std::as_const(calls_))
            bluez_.answer(call);
    }
    void refuse()
    {
        stop();
        for (const QDBusMessage &call : std::as_const(calls_))
            bluez_.connection().send(call.createErrorReply(QStringLiteral("org.bluez.Error.Failed"), {}));
    }

private:
    sim::FakeBluez &bluez_;
    QString method_;
    QList<QDBusMessage> calls_;
};

/// Control interface, agent and endpoint are served at once.
bool servesAtOnce(sim::Board &board)
{
    // BlueZ gives an endpoint no longer; a daemon that waits for BlueZ takes as long as an answer is owed.
    constexpr int LimitMs = 3000;
    QElapsedTimer clock;
    clock.start();
    // At start it takes a moment until there is anybody to answer.
    const auto control = [&] { return board.control.property(QStringLiteral("Connected")).isValid(); };
    // Wherever BlueZ knows the agent from: its registration may be what is unanswered.
    QDBusMessage authorize = QDBusMessage::createMethodCall(
        QStringLiteral("org.kadobt"), QStringLiteral("/Nodera/BluetoothAgent"), QStringLiteral("org.bluez.Agent1"),
        QStringLiteral("RequestAuthorization"));
    authorize << QVariant::fromValue(QDBusObjectPath(PhonePath));
    const auto endpoint = [&] {
        return board.bluez.callEndpoint(0, QStringLiteral("SelectConfiguration"), {QByteArray::fromHex("ffff0235")});
    };
    const bool served = sim::waitFor(control) && board.bluez.call(authorize).type() == QDBusMessage::ReplyMessage
        && (board.bluez.endpoints().isEmpty() || endpoint().type() == QDBusMessage::ReplyMessage);
    return served && clock.elapsed() <= LimitMs;
}

} // namespace

class SlowBluezTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void setUpThatBluezHoldsUp_data();
    void setUpThatBluezHoldsUp();
    void phoneThatBluezHoldsUp_data();
    void phoneThatBluezHoldsUp();
    void answersThatNeverCome();
    void descriptorThatComesTooLate();
    void pauseBeforeTheDescriptor();
    void phoneThatLeavesBeforeItsName();
    void adapterThatGoesEndsItsSetUp();
};

void SlowBluezTest::setUpThatBluezHoldsUp_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("argument");
    const auto row = [](const char *method, const char *argument) {
        QTest::newRow(method) << QByteArray(method) << QString::fromLatin1(argument);
    };
    row("GetManagedObjects", "");
    row("Set", "Powered");
    row("RegisterAgent", "");
    row("RequestDefaultAgent", "");
    row("RegisterEndpoint", "/endpoint/");
}

/// BlueZ dies with the answer owed; the next one answers late.
void SlowBluezTest::setUpThatBluezHoldsUp()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, argument);
    sim::Board board;
    {
        const HeldCalls lost(board.bluez, method.constData(), argument);
        board.daemon.start(board.bus.address());
        WAIT_UNTIL(lost.arrived());
        QVERIFY(servesAtOnce(board));
        board.bluez.crash();
    }
    HeldCalls late(board.bluez, method.constData(), argument);
    board.bluez.restart();
    board.bluez.addAdapter();
    WAIT_UNTIL(late.arrived());
    QVERIFY(servesAtOnce(board));
    late.answer();
    WAIT_UNTIL(board.bluez.endpoints().size() == 2 && !board.player.targets().isEmpty()
               && board.player.targets().last() == notification(true, false, "", false));
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    phone.connect();
    WAIT_UNTIL(board.player.targets().last() == notification(true, true, "Anna", false));
    QVERIFY(phone.authorize() && phone.configure(sim::SbcFormat{}) && phone.start(Mtu));
    WAIT_UNTIL(board.control.property(QStringLiteral("Streaming")).toBool());
}

void SlowBluezTest::phoneThatBluezHoldsUp_data()
{
    QTest::addColumn<QString>("end");
    for (const char *end : {"late answers", "BlueZ dies", "BlueZ is replaced"})
        QTest::newRow(end) << QString::fromLatin1(end);
}

/// It plays, while its name, the speaker's new name and its hang-up are all unanswered.
void SlowBluezTest::phoneThatBluezHoldsUp()
{
    QFETCH(QString, end);
    ConfiguredBoard b;
    QVERIFY(b.ready);
    b.phone.disconnect();
    const QString connectedToNobody = notification(true, false, "", false);
    WAIT_UNTIL(b.board.player.targets().last() == connectedToNobody);
    b.board.player.forgetRequests();
    HeldCalls get(b.board.bluez, "Get");
    HeldCalls set(b.board.bluez, "Set");
    HeldCalls disconnect(b.board.bluez, "Disconnect");

    b.phone.connect();
    WAIT_UNTIL(get.arrived());
    QVERIFY(b.phone.authorize() && b.phone.configure(sim::SbcFormat{}) && b.startHeard());
    for (int i = 0; i < 10; ++i) {
        sim::writePlayerName(QByteArray("Room ") + QByteArray::number(i) + '\n');
        b.board.control.call(QStringLiteral("ResetAlias"));
        b.board.control.setProperty(QStringLiteral("Connected"), i % 2 == 1); // true asks for nothing
    }
    WAIT_UNTIL(set.arrived() && disconnect.arrived());
    QVERIFY(servesAtOnce(b.board));
    const QList<QByteArray> sent = packets(0.3);
    QVERIFY(b.send(sent));
    QVERIFY(b.hears(sim::decodeSbc(sent)));
    WAIT_UNTIL(b.board.player.targets() == QStringList(connectedToNobody)); // the stream's, for want of a name
    for (const HeldCalls *held : {&get, &set, &disconnect})
        QCOMPARE(held->calls().size(), 1); // demands do not pile up

    if (end == QStringLiteral("late answers")) {
        get.answer();
        WAIT_UNTIL(b.board.player.targets().last() == notification(true, true, "Anna", true));
        b.board.bluez.forgetCalls();
        set.answer();
        WAIT_UNTIL(alias(b.board) == QVariant(QStringLiteral("Room 9 BT")));
        QCOMPARE(b.board.bluez.countCalls(QStringLiteral("Set")), 1);
        disconnect.answer();
        WAIT_UNTIL(b.board.player.targets().last() == connectedToNobody);
        return;
    }
    b.board.player.forgetRequests();
    for (HeldCalls *held : {&get, &set, &disconnect})
        held->stop();
    if (end == QStringLiteral("BlueZ dies"))
        b.board.bluez.crash();
    else
        b.board.bluez.replace();
    WAIT_UNTIL(b.board.player.targets() == QStringList({connectedToNobody, notification(false, false, "", false)}));
    WAIT_UNTIL(!b.board.player.audioConnected());
    for (const char *property : {"AdapterPresent", "Connected", "Streaming"})
        QCOMPARE(b.board.control.property(QLatin1String(property)), QVariant(false));
    if (end == QStringLiteral("BlueZ dies"))
        b.board.bluez.restart();
    b.board.bluez.addAdapter();
    WAIT_UNTIL(b.board.player.targets().last() == connectedToNobody);
    b.phone.connect();
    WAIT_UNTIL(b.board.player.targets().last() == notification(true, true, "Anna", false));
    QVERIFY(b.phone.authorize() && b.playsAnother());
    QVERIFY(b.board.player.heard() == sim::decodeSbc(sent)); // a new decoder with the new adapter
}

void SlowBluezTest::answersThatNeverCome()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    b.phone.disconnect();
    WAIT_UNTIL(b.board.player.targets().last() == notification(true, false, "", false));
    {
        const HeldCalls get(b.board.bluez, "Get");
        const HeldCalls acquire(b.board.bluez, "Acquire");
        b.phone.connect();
        QVERIFY(b.phone.configure(sim::SbcFormat{}));
        b.state("pending");
        const auto unnamed = [&] { return b.board.player.targets().last() == notification(true, true, "", false); };
        QVERIFY(sim::waitFor(unnamed, GivenUpMs));
        const auto notAcquired = [&] {
            const QString line = QStringLiteral("Acquire: \"org.freedesktop.DBus.Error.NoReply\"");
            return !b.board.daemon.logTexts().filter(line).isEmpty();
        };
        QVERIFY(sim::waitFor(notAcquired, GivenUpMs));

        // The answer comes after all: its descriptor is closed.
        Ends ends;
        b.board.bluez.connection().send(acquireReply(acquire.calls().constFirst(), ends));
        ends.there.reset();
        char byte = 0;
        WAIT_UNTIL(::recv(ends.here.get(), &byte, 1, MSG_DONTWAIT) == 0); // nobody holds the other end
    }
    QVERIFY(b.playsAnother());
}

void SlowBluezTest::descriptorThatComesTooLate()
{
    for (const bool cleared : {false, true}) { // the stream is idle, or its configuration cleared
        ConfiguredBoard b;
        QVERIFY(b.ready);
        const Ends ends;
        {
            const HeldCalls acquire(b.board.bluez, "Acquire");
            b.state("pending");
            b.state("pending");
            WAIT_UNTIL(b.board.daemon.logTexts().count(QStringLiteral("Transport State = \"pending\" ")) == 2);
            QVERIFY(b.phone.authorize()); // the answer comes behind all calls
            WAIT_UNTIL(acquire.arrived());
            QCOMPARE(acquire.calls().size(), 1);
            const int descriptors = settledDescriptors(b.board.daemon);
            if (cleared)
                QVERIFY(b.phone.clear());
            else
                b.state("idle");

            const QByteArray packet = packets(0.1).constFirst();
            QVERIFY(ends.send(packet));
            b.board.bluez.connection().send(acquireReply(acquire.calls().constFirst(), ends));
            if (!cleared)
                b.state("active"); // behind the answer
            QVERIFY(cleared || b.active());
            WAIT_UNTIL(b.board.daemon.openDescriptors() <= descriptors);
            QByteArray unread(Mtu, '\0');
            QCOMPARE(::recv(ends.there.get(), unread.data(), static_cast<size_t>(unread.size()), MSG_DONTWAIT),
                     packet.size());
        }
        if (!cleared)
            b.state("idle");
        QVERIFY(b.playsAnother());
    }
}

/// The phone pauses and goes on while an Acquire is unanswered.
void SlowBluezTest::pauseBeforeTheDescriptor()
{
    for (const bool refused : {false, true}) { // or BlueZ refuses it because of the pause
        ConfiguredBoard b;
        QVERIFY(b.ready && b.board.player.connectAudio());
        HeldCalls acquire(b.board.bluez, "Acquire");
        const Ends ends;
        b.board.bluez.offerStream(b.phone.transportPath(), ends.there.get(), Mtu);
        for (const char *state : {"pending", "idle", "pending"})
            b.state(state);
        WAIT_UNTIL(b.board.daemon.logTexts().filter(QStringLiteral("Transport State")).size() == 3);
        QVERIFY(b.phone.authorize()); // the answer comes behind all calls
        WAIT_UNTIL(acquire.arrived());
        QCOMPARE(acquire.calls().size(), 1);
        if (refused)
            acquire.refuse();
        else
            acquire.answer();
        QVERIFY(b.active());
        const QList<QByteArray> sent = packets(0.2);
        for (const QByteArray &packet : sent)
            QVERIFY(ends.send(packet));
        QVERIFY(b.hears(sim::decodeSbc(sent)));
        b.state("idle"); // all has been read: a read that waited would be for good
        WAIT_UNTIL(!b.board.player.audioConnected());
        QVERIFY(b.playsAnother());
    }
}

void SlowBluezTest::phoneThatLeavesBeforeItsName()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone anna(board.bluez, PhonePath, QStringLiteral("Anna"));
    sim::Phone bob(board.bluez, OtherPhonePath, QStringLiteral("Bob"));
    const QString none = notification(true, false, "", false);
    for (sim::Phone *next : {&anna, &bob}) { // it comes back itself, or another one comes
        board.player.forgetRequests();
        HeldCalls get(board.bluez, "Get");
        anna.connect();
        WAIT_UNTIL(get.arrived());
        QVERIFY(anna.authorize());
        anna.disconnect();
        WAIT_UNTIL(board.player.targets() == QStringList(none));
        QVERIFY(!anna.authorize());
        next->connect();
        QVERIFY(next->authorize());
        get.refuse();
        const char *name = next == &anna ? "Anna" : "Bob";
        WAIT_UNTIL(board.player.targets() == QStringList({none, notification(true, true, name, false)}));
        QCOMPARE(board.control.property(QStringLiteral("Name")), QVariant(QLatin1String(name)));
        next->disconnect();
        WAIT_UNTIL(board.player.targets().size() == 3);
    }
}

void SlowBluezTest::adapterThatGoesEndsItsSetUp()
{
    sim::Board board;
    board.bluez.addAdapter(QStringLiteral("/org/bluez/hci1"));
    HeldCalls step(board.bluez, "Set", QStringLiteral("hci0 \"org.bluez.Adapter1\" \"Powered\""));
    board.daemon.start(board.bus.address());
    WAIT_UNTIL(step.arrived());
    board.bluez.forgetCalls();
    board.bluez.removeAdapter();
    step.refuse();
    WAIT_UNTIL(board.player.targets()
               == QStringList({notification(false, false, "", false), notification(true, false, "", false)}));
    QCOMPARE(board.bluez.endpoints().size(), 2);
    for (const sim::BluezCall &call : board.bluez.calls())
        QVERIFY2(call.path != Hci0, qPrintable(call.text()));
}

QTEST_GUILESS_MAIN(SlowBluezTest)
#include "tst_slowbluez.moc"
