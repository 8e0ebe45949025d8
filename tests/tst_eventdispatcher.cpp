// SPDX-License-Identifier: MIT
// The main thread's event loop by itself. All tests of the daemon also run on it.

#include "eventloop/directnotifier.h"
#include "eventloop/eventdispatcher.h"
#include "waituntil.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSocketNotifier>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <array>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <sys/socket.h>

class EventDispatcherTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void timersFireOnTime();
    void lateTimersKeepTheirPhase();
    void handlersStopTimersThatAreDue();
    void readersAndWritersAreWoken();
    void hangUpWakesReaders();
    void handlersRemoveNotifiers();
    void noSourceStarves();
    void wakeUpsDuringPostedEventsCount();
};

namespace {

struct SocketPair {
    SocketPair()
    {
        int ends[2] = {-1, -1};
        [[maybe_unused]] const int failed = ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends);
        near = FileDescriptor(ends[0]);
        far = FileDescriptor(ends[1]);
    }
    FileDescriptor near;
    FileDescriptor far;
};

void put(const FileDescriptor &socket)
{
    QCOMPARE(::send(socket.get(), "x", 1, MSG_NOSIGNAL), ssize_t{1});
}

ssize_t take(const FileDescriptor &socket)
{
    std::array<char, 65536> bytes{};
    return ::recv(socket.get(), bytes.data(), bytes.size(), 0);
}

void fill(const FileDescriptor &socket)
{
    const std::array<char, 65536> bytes{};
    while (::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0) {
    }
}

class Direct final : public DirectNotifier {
public:
    Direct(const FileDescriptor &fd, std::function<void()> handler)
        : DirectNotifier(fd.get()), handler_(std::move(handler))
    {
    }
    void ready() override { handler_(); }

private:
    std::function<void()> handler_;
};

} // namespace

void EventDispatcherTest::timersFireOnTime()
{
    QElapsedTimer clock;
    clock.start();
    QList<int> order;
    QTimer repeating;
    connect(&repeating, &QTimer::timeout, this, [&] {
        order << 10;
        if (order.size() == 6) {
            repeating.stop();
            QTimer::singleShot(50, this, [&] { order << 50; });
        }
    });
    repeating.start(10);
    QTimer::singleShot(0, this, [&] { order << 0; });
    WAIT_UNTIL(order.contains(50));
    QCOMPARE(order, QList<int>({0, 10, 10, 10, 10, 10, 50}));
    QVERIFY(clock.elapsed() >= 99); // not 100, because timers round to milliseconds
}

void EventDispatcherTest::lateTimersKeepTheirPhase()
{
    // Blocks the loop for `busyMs`. Returns when the timer fires, and when it will fire again.
    const auto late = [](int intervalMs, unsigned long busyMs) {
        QTimer timer;
        QElapsedTimer clock;
        qint64 firedMs = -1;
        qint64 nextMs = -1;
        connect(&timer, &QTimer::timeout, &timer, [&] {
            firedMs = clock.elapsed();
            nextMs = firedMs + timer.remainingTime();
            timer.stop();
        });
        timer.start(intervalMs);
        clock.start();
        QThread::msleep(busyMs);
        sim::waitFor([&] { return firedMs >= 0; });
        return std::make_pair(firedMs, nextMs);
    };
    const auto [first, second] = late(400, 450);
    if (first >= 800)
        QSKIP("the machine was stopped");
    QVERIFY2(second <= 805, qPrintable(QString::number(second)));
    // Missed timeouts are skipped.
    const auto [once, again] = late(200, 450);
    QVERIFY(again > once);
}

void EventDispatcherTest::handlersStopTimersThatAreDue()
{
    struct : QObject {
        void timerEvent(QTimerEvent * /*event*/) override
        {
            ++fired;
            for (const int id : ids)
                killTimer(id);
        }
        QList<int> ids;
        int fired = 0;
    } stopper;
    stopper.ids = {stopper.startTimer(1), stopper.startTimer(1), stopper.startTimer(1)};
    bool turnEnded = false;
    QTimer::singleShot(1, this, [&] { turnEnded = true; });
    QThread::msleep(5); // makes all timers due in one iteration
    WAIT_UNTIL(turnEnded);
    QCOMPARE(stopper.fired, 1);
}

void EventDispatcherTest::readersAndWritersAreWoken()
{
    SocketPair pair;
    fill(pair.near);
    int readable = 0;
    int writable = 0;
    QSocketNotifier reader(pair.near.get(), QSocketNotifier::Read);
    QSocketNotifier writer(pair.near.get(), QSocketNotifier::Write);
    connect(&reader, &QSocketNotifier::activated, this, [&] {
        ++readable;
        take(pair.near);
    });
    connect(&writer, &QSocketNotifier::activated, this, [&] {
        ++writable;
        writer.setEnabled(false);
    });
    put(pair.far);
    WAIT_UNTIL(readable == 1);
    QCOMPARE(writable, 0);
    while (take(pair.far) > 0) {
    }
    WAIT_UNTIL(writable == 1);
    put(pair.far);
    WAIT_UNTIL(readable == 2);
    QCOMPARE(writable, 1);
}

/// A closed pipe reports only a hang-up.
void EventDispatcherTest::hangUpWakesReaders()
{
    int ends[2] = {-1, -1};
    QCOMPARE(::pipe2(ends, O_CLOEXEC), 0);
    const FileDescriptor near(ends[0]);
    FileDescriptor far(ends[1]);
    QSocketNotifier reader(near.get(), QSocketNotifier::Read);
    bool ended = false;
    connect(&reader, &QSocketNotifier::activated, this, [&] {
        ended = true;
        reader.setEnabled(false);
    });
    far.reset();
    WAIT_UNTIL(ended);
}

void EventDispatcherTest::handlersRemoveNotifiers()
{
    SocketPair pair;
    SocketPair full;
    put(pair.far);
    fill(full.near);
    auto reader = std::make_unique<QSocketNotifier>(pair.near.get(), QSocketNotifier::Read);
    auto writer = std::make_unique<QSocketNotifier>(pair.near.get(), QSocketNotifier::Write);
    const QSocketNotifier next(full.near.get(), QSocketNotifier::Write);
    int wrong = 0;
    connect(writer.get(), &QSocketNotifier::activated, this, [&] { ++wrong; });
    connect(&next, &QSocketNotifier::activated, this, [&] { ++wrong; });
    connect(reader.get(), &QSocketNotifier::activated, this, [&] {
        reader->setEnabled(false);
        writer.reset(); // although it is ready in this iteration
    });
    WAIT_UNTIL(!writer);
    QCOMPARE(wrong, 0);
}

void EventDispatcherTest::noSourceStarves()
{
    std::array<SocketPair, 3> pairs;
    for (const SocketPair &pair : pairs)
        put(pair.far); // never read, so that the socket stays ready
    std::array<int, 3> turns{};
    const Direct direct(pairs[0].near, [&] { ++turns[0]; });
    QSocketNotifier one(pairs[1].near.get(), QSocketNotifier::Read);
    QSocketNotifier other(pairs[2].near.get(), QSocketNotifier::Read);
    connect(&one, &QSocketNotifier::activated, this, [&] { ++turns[1]; });
    connect(&other, &QSocketNotifier::activated, this, [&] { ++turns[2]; });
    int posts = 0;
    QObject poster; // its posted events are dropped when it is deleted
    QTimer timer;
    const auto count = [&posts] { ++posts; };
    connect(&timer, &QTimer::timeout, this, [&] { QMetaObject::invokeMethod(&poster, count, Qt::QueuedConnection); });
    timer.start(1);
    WAIT_UNTIL(posts >= 20);
    QVERIFY(turns[0] > 20);
    QVERIFY(qAbs(turns[0] - turns[1]) <= 2 && qAbs(turns[1] - turns[2]) <= 2);
    // The same with only direct notifiers.
    one.setEnabled(false);
    other.setEnabled(false);
    WAIT_UNTIL(posts >= 40);
}

/// Tests a wake-up from another thread after the last posted event, but before the end of the iteration.
void EventDispatcherTest::wakeUpsDuringPostedEventsCount()
{
    bool woke = false;
    QObject receiver;
    QMetaObject::invokeMethod(
        &receiver,
        [&woke] {
            woke = true;
            QCoreApplication::eventDispatcher()->wakeUp();
        },
        Qt::QueuedConnection);
    while (!woke)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    bool slept = false;
    QTimer::singleShot(2000, &receiver, [&slept] { slept = true; });
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    QVERIFY(!slept);
}

int main(int argc, char **argv)
{
    QCoreApplication::setEventDispatcher(new EventDispatcher);
    const QCoreApplication app(argc, argv);
    EventDispatcherTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_eventdispatcher.moc"
