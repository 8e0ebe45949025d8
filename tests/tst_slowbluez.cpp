// SPDX-License-Identifier: MIT
// BlueZ answers a call late, never, or crashes before it answers. Streams, endpoints, agent and control interface must
// continue to work, and the final state must be correct.

#include "streamingboard.h"

#include <QDBusUnixFileDescriptor>
#include <QElapsedTimer>

#include <sys/socket.h>

using namespace boardtest;

namespace {

constexpr int CallTimeoutMs = 15'000; // the daemon's timeout of Get and Acquire is 12 s

/// A stream socket with a blocking daemon's end, in contrast to BlueZ's.
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

/// Calls of one method that BlueZ does not answer, from construction until stop() or destruction.
class DelayedCalls {
public:
    /// Delays only calls whose sim::BluezCall::text() contains `text`.
    DelayedCalls(sim::FakeBluez &bluez, const char *method, const QString &text = {})
        : bluez_(bluez), method_(QLatin1String(method))
    {
        bluez_.intercept(method_, [this, text](const QDBusMessage &call) {
            if (!bluez_.calls().constLast().text().contains(text))
                return false;
            calls_.append(call);
            return true;
        });
    }
    ~DelayedCalls() { stop(); }
    DelayedCalls(const DelayedCalls &) = delete;
    DelayedCalls &operator=(const DelayedCalls &) = delete;

    bool arrived() const { return !calls_.isEmpty(); }
    const QList<QDBusMessage> &calls() const { return calls_; }

    /// Lets BlueZ answer further calls as usual.
    void stop() { bluez_.stopIntercepting(method_); }
    /// Calls stop() and answers the delayed calls.
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

/// Returns whether control interface, agent and endpoint answer at once.
bool servesAtOnce(sim::Board &board)
{
    // BlueZ's timeout for an endpoint. A daemon that blocks until BlueZ answers would take longer.
    constexpr int LimitMs = 3000;
    QElapsedTimer clock;
    clock.start();
    // Wait, because at start the daemon may not be on the bus yet.
    const auto control = [&] { return board.control.property(QStringLiteral("Connected")).isValid(); };
    // Call the agent directly, because BlueZ may not have registered it: that may be the delayed call.
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
    void slowSetUp_data();
    void slowSetUp();
    void slowPhoneCalls_data();
    void slowPhoneCalls();
    void missingAnswersTimeOut();
    void lateDescriptorIsClosed();
    void pauseBeforeAcquireReply();
    void phoneDisconnectsBeforeItsName();
    void removedAdapterEndsItsSetUp();
};

void SlowBluezTest::slowSetUp_data()
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

/// BlueZ crashes before it answers. After its restart it answers late.
void SlowBluezTest::slowSetUp()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, argument);
    sim::Board board;
    {
        const DelayedCalls lost(board.bluez, method.constData(), argument);
        board.daemon.start(board.bus.address());
        WAIT_UNTIL(lost.arrived());
        QVERIFY(servesAtOnce(board));
        board.bluez.crash();
    }
    DelayedCalls late(board.bluez, method.constData(), argument);
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

void SlowBluezTest::slowPhoneCalls_data()
{
    QTest::addColumn<QString>("end");
    for (const char *end : {"late answers", "BlueZ crashes", "BlueZ is replaced"})
        QTest::newRow(end) << QString::fromLatin1(end);
}

/// A phone plays while BlueZ delays the calls for its name, for the speaker's new name and for its disconnection.
void SlowBluezTest::slowPhoneCalls()
{
    QFETCH(QString, end);
    ConfiguredBoard b;
    QVERIFY(b.ready);
    b.phone.disconnect();
    const QString noPhone = notification(true, false, "", false);
    WAIT_UNTIL(b.board.player.targets().last() == noPhone);
    b.board.player.clearRequests();
    DelayedCalls get(b.board.bluez, "Get");
    DelayedCalls set(b.board.bluez, "Set");
    DelayedCalls disconnect(b.board.bluez, "Disconnect");

    b.phone.connect();
    WAIT_UNTIL(get.arrived());
    QVERIFY(b.phone.authorize() && b.phone.configure(sim::SbcFormat{}) && b.startHeard());
    for (int i = 0; i < 10; ++i) {
        sim::writePlayerName(QByteArray("Room ") + QByteArray::number(i) + '\n');
        b.board.control.call(QStringLiteral("ResetAlias"));
        b.board.control.setProperty(QStringLiteral("Connected"), i % 2 == 1); // true has no effect
    }
    WAIT_UNTIL(set.arrived() && disconnect.arrived());
    QVERIFY(servesAtOnce(b.board));
    const QList<QByteArray> sent = packets(0.3);
    QVERIFY(b.send(sent));
    QVERIFY(b.hears(sim::decodeSbc(sent)));
    WAIT_UNTIL(b.board.player.targets() == QStringList(noPhone)); // for the stream, without a name
    for (const DelayedCalls *delayed : {&get, &set, &disconnect})
        QCOMPARE(delayed->calls().size(), 1); // the daemon does not repeat a pending call

    if (end == QStringLiteral("late answers")) {
        get.answer();
        WAIT_UNTIL(b.board.player.targets().last() == notification(true, true, "Anna", true));
        b.board.bluez.clearCalls();
        set.answer();
        WAIT_UNTIL(alias(b.board) == QVariant(QStringLiteral("Room 9 BT")));
        QCOMPARE(b.board.bluez.countCalls(QStringLiteral("Set")), 1);
        disconnect.answer();
        WAIT_UNTIL(b.board.player.targets().last() == noPhone);
        return;
    }
    b.board.player.clearRequests();
    for (DelayedCalls *delayed : {&get, &set, &disconnect})
        delayed->stop();
    if (end == QStringLiteral("BlueZ crashes"))
        b.board.bluez.crash();
    else
        b.board.bluez.replace();
    WAIT_UNTIL(b.board.player.targets() == QStringList({noPhone, notification(false, false, "", false)}));
    WAIT_UNTIL(!b.board.player.audioConnected());
    for (const char *property : {"AdapterPresent", "Connected", "Streaming"})
        QCOMPARE(b.board.control.property(QLatin1String(property)), QVariant(false));
    if (end == QStringLiteral("BlueZ crashes"))
        b.board.bluez.restart();
    b.board.bluez.addAdapter();
    WAIT_UNTIL(b.board.player.targets().last() == noPhone);
    b.phone.connect();
    WAIT_UNTIL(b.board.player.targets().last() == notification(true, true, "Anna", false));
    QVERIFY(b.phone.authorize() && b.playsNewStream());
    QVERIFY(b.board.player.heard() == sim::decodeSbc(sent)); // a new decoder with the new adapter
}

void SlowBluezTest::missingAnswersTimeOut()
{
    ConfiguredBoard b;
    QVERIFY(b.ready);
    b.phone.disconnect();
    WAIT_UNTIL(b.board.player.targets().last() == notification(true, false, "", false));
    {
        const DelayedCalls get(b.board.bluez, "Get");
        const DelayedCalls acquire(b.board.bluez, "Acquire");
        b.phone.connect();
        QVERIFY(b.phone.configure(sim::SbcFormat{}));
        b.state("pending");
        const auto unnamed = [&] { return b.board.player.targets().last() == notification(true, true, "", false); };
        QVERIFY(sim::waitFor(unnamed, CallTimeoutMs));
        const auto notAcquired = [&] {
            const QString line = QStringLiteral("Acquire: \"org.freedesktop.DBus.Error.NoReply\"");
            return !b.board.daemon.logTexts().filter(line).isEmpty();
        };
        QVERIFY(sim::waitFor(notAcquired, CallTimeoutMs));

        // The daemon closes the descriptor of an answer that arrives after the timeout.
        Ends ends;
        b.board.bluez.connection().send(acquireReply(acquire.calls().constFirst(), ends));
        ends.there.reset();
        char byte = 0;
        WAIT_UNTIL(::recv(ends.here.get(), &byte, 1, MSG_DONTWAIT) == 0); // the other end is closed
    }
    QVERIFY(b.playsNewStream());
}

void SlowBluezTest::lateDescriptorIsClosed()
{
    for (const bool cleared : {false, true}) { // the stream is idle, or its configuration cleared
        ConfiguredBoard b;
        QVERIFY(b.ready);
        const Ends ends;
        {
            const DelayedCalls acquire(b.board.bluez, "Acquire");
            b.state("pending");
            b.state("pending");
            WAIT_UNTIL(b.board.daemon.logTexts().count(QStringLiteral("Transport State = \"pending\" ")) == 2);
            QVERIFY(b.phone.authorize()); // the daemon has sent all earlier calls before this reply
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
                b.state("active"); // after the answer
            QVERIFY(cleared || b.active());
            WAIT_UNTIL(b.board.daemon.openDescriptors() <= descriptors);
            QByteArray unread(Mtu, '\0');
            QCOMPARE(::recv(ends.there.get(), unread.data(), static_cast<size_t>(unread.size()), MSG_DONTWAIT),
                     packet.size());
        }
        if (!cleared)
            b.state("idle");
        QVERIFY(b.playsNewStream());
    }
}

/// The phone pauses and resumes before BlueZ answers Acquire.
void SlowBluezTest::pauseBeforeAcquireReply()
{
    for (const bool refused : {false, true}) { // or BlueZ refuses it because of the pause
        ConfiguredBoard b;
        QVERIFY(b.ready && b.board.player.connectAudio());
        DelayedCalls acquire(b.board.bluez, "Acquire");
        const Ends ends;
        b.board.bluez.offerStream(b.phone.transportPath(), ends.there.get(), Mtu);
        for (const char *state : {"pending", "idle", "pending"})
            b.state(state);
        WAIT_UNTIL(b.board.daemon.logTexts().filter(QStringLiteral("Transport State")).size() == 3);
        QVERIFY(b.phone.authorize()); // the daemon has sent all earlier calls before this reply
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
        b.state("idle"); // all packets have been read, so a blocking read would block forever
        WAIT_UNTIL(!b.board.player.audioConnected());
        QVERIFY(b.playsNewStream());
    }
}

void SlowBluezTest::phoneDisconnectsBeforeItsName()
{
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone anna(board.bluez, PhonePath, QStringLiteral("Anna"));
    sim::Phone bob(board.bluez, OtherPhonePath, QStringLiteral("Bob"));
    const QString none = notification(true, false, "", false);
    for (sim::Phone *next : {&anna, &bob}) { // the same phone or another one connects
        board.player.clearRequests();
        DelayedCalls get(board.bluez, "Get");
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

void SlowBluezTest::removedAdapterEndsItsSetUp()
{
    sim::Board board;
    board.bluez.addAdapter(QStringLiteral("/org/bluez/hci1"));
    DelayedCalls step(board.bluez, "Set", QStringLiteral("hci0 \"org.bluez.Adapter1\" \"Powered\""));
    board.daemon.start(board.bus.address());
    WAIT_UNTIL(step.arrived());
    board.bluez.clearCalls();
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
