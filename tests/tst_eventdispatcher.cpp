// The main thread's event loop, in itself: the daemon's other tests run on it without saying so.

#include "eventloop/directnotifier.h"
#include "eventloop/eventdispatcher.h"
#include "waituntil.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QPointer>
#include <QProcess>
#include <QSocketNotifier>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <array>
#include <cerrno>
#include <functional>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>

class EventDispatcherTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void timersFireInTheirTime();
    void repeatingTimersDoNotDrift();
    void missedTimesAreNotMadeUpFor();
    void handlersStopTimersThatAreDue();
    void readersAndWritersAreWoken();
    void urgentDataWakesExceptionNotifiers();
    void handlersRemoveNotifiers();
    void hangUpWakesWhoeverWaits();
    void nobodyStarves();
    void directNotifiersLeaveRoomForOthers();
    void directNotifiersMayBeStopped();
    void whatOtherThreadsPostArrives();
    void wakeUpsDuringPostedEventsCount();
    void deletesLater();
    void nestedLoopsAbort_data();
    void nestedLoopsAbort();
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

void EventDispatcherTest::timersFireInTheirTime()
{
    QElapsedTimer clock;
    clock.start();
    QList<int> order;
    QTimer repeating;
    connect(&repeating, &QTimer::timeout, this, [&] {
        order << 10;
        if (order.count(10) == 5)
            repeating.stop();
    });
    repeating.start(10);
    QTimer::singleShot(35, this, [&] { order << 35; });
    QTimer::singleShot(0, this, [&] { order << 0; });
    QVERIFY(repeating.remainingTime() <= 10);
    WAIT_UNTIL(order.size() == 7);
    QVERIFY(clock.elapsed() >= 49); // kept to the millisecond: a part of one may be missing
    QCOMPARE(order.first(), 0);
    QVERIFY(order.contains(35));
    QCOMPARE(repeating.remainingTime(), -1);
    QTest::qWait(20);
    QCOMPARE(order.count(10), 5);
}

void EventDispatcherTest::repeatingTimersDoNotDrift()
{
    constexpr int IntervalMs = 200;
    QTimer repeating;
    QElapsedTimer clock;
    qint64 firedMs = -1;
    qint64 nextMs = -1;
    connect(&repeating, &QTimer::timeout, this, [&] {
        firedMs = clock.elapsed();
        nextMs = firedMs + repeating.remainingTime();
        repeating.stop();
    });
    clock.start();
    repeating.start(IntervalMs);
    QThread::msleep(IntervalMs + 50); // something makes the first time late
    WAIT_UNTIL(firedMs >= 0);
    if (firedMs >= 2 * IntervalMs)
        QSKIP("the machine stood still");
    QVERIFY2(nextMs <= 2 * IntervalMs + 5, qPrintable(QString::number(nextMs)));
}

void EventDispatcherTest::missedTimesAreNotMadeUpFor()
{
    QElapsedTimer clock;
    QList<qint64> times;
    QTimer repeating;
    connect(&repeating, &QTimer::timeout, this, [&] { times << clock.elapsed(); });
    clock.start();
    repeating.start(20);
    QThread::msleep(90); // something blocks the loop for four intervals
    WAIT_UNTIL(times.size() >= 2);
    QVERIFY(times[1] - times[0] >= 19);
}

void EventDispatcherTest::handlersStopTimersThatAreDue()
{
    QTimer one;
    QTimer other;
    int fired = 0;
    const auto stopBoth = [&] {
        ++fired;
        one.stop();
        other.stop();
    };
    connect(&one, &QTimer::timeout, this, stopBoth);
    connect(&other, &QTimer::timeout, this, stopBoth);
    one.start(1);
    other.start(1);
    QThread::msleep(5); // both are due in one turn
    WAIT_UNTIL(fired > 0);
    QTest::qWait(10);
    QCOMPARE(fired, 1);
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

void EventDispatcherTest::urgentDataWakesExceptionNotifiers()
{
    const FileDescriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const FileDescriptor far(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    QCOMPARE(::bind(listener.get(), generic, size), 0);
    QCOMPARE(::listen(listener.get(), 1), 0);
    QCOMPARE(::getsockname(listener.get(), generic, &size), 0);
    QCOMPARE(::connect(far.get(), generic, size), 0);
    const FileDescriptor near(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));

    int readable = 0;
    int urgent = 0;
    int wrong = 0;
    QSocketNotifier reader(near.get(), QSocketNotifier::Read);
    QSocketNotifier exception(near.get(), QSocketNotifier::Exception);
    connect(&reader, &QSocketNotifier::activated, this, [&] {
        ++readable;
        take(near);
    });
    connect(&exception, &QSocketNotifier::activated, this, [&] {
        char byte = 0;
        ++(::recv(near.get(), &byte, 1, MSG_OOB) == 1 ? urgent : wrong);
    });
    put(far);
    WAIT_UNTIL(readable == 1);
    QCOMPARE(::send(far.get(), "!", 1, MSG_OOB), ssize_t{1});
    WAIT_UNTIL(urgent == 1);
    reader.setEnabled(false);
    put(far);
    QCOMPARE(::send(far.get(), "!", 1, MSG_OOB), ssize_t{1});
    WAIT_UNTIL(urgent == 2);
    QCOMPARE(wrong, 0);
    QVERIFY(readable <= 2); // once for the mark that the urgent byte leaves
}

void EventDispatcherTest::handlersRemoveNotifiers()
{
    SocketPair pair;
    SocketPair second;
    auto reader = std::make_unique<QSocketNotifier>(pair.near.get(), QSocketNotifier::Read);
    auto writer = std::make_unique<QSocketNotifier>(pair.near.get(), QSocketNotifier::Write);
    std::unique_ptr<QSocketNotifier> next;
    int woken = 0;
    int wrong = 0;
    writer->setEnabled(false);
    connect(writer.get(), &QSocketNotifier::activated, this, [&] { ++wrong; });
    connect(reader.get(), &QSocketNotifier::activated, this, [&] {
        take(pair.near);
        writer.reset(); // due in this very turn
        reader->setEnabled(false);
        next = std::make_unique<QSocketNotifier>(second.near.get(), QSocketNotifier::Read);
        connect(next.get(), &QSocketNotifier::activated, this, [&] {
            ++woken;
            next->setEnabled(false);
        });
    });
    put(pair.far);
    put(second.far);
    writer->setEnabled(true);
    WAIT_UNTIL(woken == 1);
    QVERIFY(wrong <= 1); // before the reader's turn, never after it
    QVERIFY(!writer);
}

void EventDispatcherTest::hangUpWakesWhoeverWaits()
{
    SocketPair reading;
    SocketPair writing;
    fill(writing.near);
    int ends = 0;
    QSocketNotifier reader(reading.near.get(), QSocketNotifier::Read);
    QSocketNotifier writer(writing.near.get(), QSocketNotifier::Write);
    connect(&reader, &QSocketNotifier::activated, this, [&] {
        ++ends;
        reader.setEnabled(false);
    });
    connect(&writer, &QSocketNotifier::activated, this, [&] {
        ++ends;
        writer.setEnabled(false);
    });
    reading.far.reset();
    writing.far.reset();
    WAIT_UNTIL(ends == 2);
}

void EventDispatcherTest::nobodyStarves()
{
    std::array<SocketPair, 3> pairs;
    std::array<int, 3> turns{};
    std::vector<std::unique_ptr<QSocketNotifier>> notifiers;
    for (size_t i = 0; i < pairs.size(); ++i) {
        put(pairs[i].far); // and nobody takes it: readable for ever
        notifiers.push_back(std::make_unique<QSocketNotifier>(pairs[i].near.get(), QSocketNotifier::Read));
        connect(notifiers.back().get(), &QSocketNotifier::activated, this, [&turns, i] { ++turns[i]; });
    }
    int ticks = 0;
    int posts = 0;
    QObject poster; // what it was sent goes with it
    QTimer timer;
    connect(&timer, &QTimer::timeout, this, [&] {
        ++ticks;
        QMetaObject::invokeMethod(
            &poster, [&posts] { ++posts; }, Qt::QueuedConnection);
    });
    timer.start(1);
    WAIT_UNTIL(ticks >= 20 && posts >= 20);
    QVERIFY(turns[0] > 20);
    QVERIFY(qAbs(turns[0] - turns[1]) <= 2);
    QVERIFY(qAbs(turns[1] - turns[2]) <= 2);
}

void EventDispatcherTest::directNotifiersLeaveRoomForOthers()
{
    std::array<SocketPair, 2> pairs;
    for (const SocketPair &pair : pairs)
        put(pair.far); // and nobody takes it
    int direct = 0;
    int delivered = 0;
    int ticks = 0;
    int posts = 0;
    QEventLoop loop;
    const Direct notifier(pairs[0].near, [&] { ++direct; });
    QSocketNotifier other(pairs[1].near.get(), QSocketNotifier::Read);
    connect(&other, &QSocketNotifier::activated, this, [&] {
        if (++delivered == 20)
            other.setEnabled(false);
    });
    QTimer timer;
    connect(&timer, &QTimer::timeout, this, [&] {
        ++ticks;
        QMetaObject::invokeMethod(
            &loop,
            [&] {
                if (++posts == 20)
                    loop.quit();
            },
            Qt::QueuedConnection);
    });
    timer.start(1);
    QCOMPARE(loop.exec(), 0);
    QVERIFY(direct > 20 && ticks >= 20);
    QCOMPARE(delivered, 20);
}

void EventDispatcherTest::directNotifiersMayBeStopped()
{
    SocketPair pair;
    put(pair.far);
    QEventLoop loop;
    int calls = 0;
    Direct quitting(pair.near, [&] {
        if (++calls == 3)
            loop.quit();
    });
    QCOMPARE(loop.exec(), 0);          // which nothing else wakes up
    QVERIFY(calls == 3 || calls == 4); // its turn may come once more
    quitting.setEnabled(false);

    SocketPair second;
    put(second.far);
    int last = 0;
    std::unique_ptr<Direct> leaving;
    leaving = std::make_unique<Direct>(second.near, [&] {
        ++last;
        QTimer::singleShot(10, &loop, &QEventLoop::quit);
        leaving.reset();
    });
    QCOMPARE(loop.exec(), 0);
    QCOMPARE(last, 1);
}

void EventDispatcherTest::whatOtherThreadsPostArrives()
{
    constexpr int Posts = 5'000;
    int received = 0;
    std::array<std::unique_ptr<QThread>, 2> threads;
    for (auto &thread : threads) {
        thread.reset(QThread::create([this, &received] {
            for (int i = 0; i < Posts; ++i) {
                QMetaObject::invokeMethod(
                    this, [&received] { ++received; }, Qt::QueuedConnection);
                if (i % 100 == 0)
                    QThread::usleep(50); // the loop goes to sleep now and then
            }
        }));
        thread->start();
    }
    QVERIFY(sim::waitFor([&] { return received == 2 * Posts; }, 30'000));
    for (auto &thread : threads)
        QVERIFY(thread->wait());
}

/// As another thread's would that comes when the last posted event has been delivered, but the turn has not ended.
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

void EventDispatcherTest::deletesLater()
{
    const QPointer<QObject> object = new QObject;
    object->deleteLater();
    WAIT_UNTIL(!object);
}

/// What this program does when it is told to nest: the ways into an event loop that Qt has.
void nest(const QString &how)
{
    if (how == QLatin1String("a local event loop")) {
        QEventLoop inner;
        QTimer::singleShot(0, &inner, &QEventLoop::quit);
        inner.exec();
    } else {
        QCoreApplication::processEvents();
    }
}

void EventDispatcherTest::nestedLoopsAbort_data()
{
    QTest::addColumn<QString>("how");
    for (const char *how : {"a local event loop", "processEvents"})
        QTest::newRow(how) << QString::fromLatin1(how);
}

void EventDispatcherTest::nestedLoopsAbort()
{
    QFETCH(QString, how);
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--nest"), how});
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitStatus(), QProcess::CrashExit);
    const QByteArray said = process.readAllStandardError();
    QVERIFY2(said.contains("Event loops are not nested"), said.constData());
}

int main(int argc, char **argv)
{
    QCoreApplication::setEventDispatcher(new EventDispatcher);
    QCoreApplication app(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--nest") == 0) {
        QTimer::singleShot(0, &app, [&] { nest(QString::fromLocal8Bit(argv[2])); });
        QTimer::singleShot(100, &app, &QCoreApplication::quit);
        return QCoreApplication::exec();
    }
    EventDispatcherTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_eventdispatcher.moc"
