#pragma once

#include "eventloop/filedescriptor.h"

#include <QAbstractEventDispatcher>
#include <QList>
#include <QVarLengthArray>

#include <atomic>
#include <vector>

class DirectNotifier;
class QSocketNotifier;

/// The main thread's event loop in the place of Qt's, for a process that wakes up for one descriptor, seventy times a
/// second, for hours: what a wake-up executes and touches is what a received packet costs besides its decoding.
///
/// A turn is one epoll_wait() for one event. Posted events are looked at only after a wakeUp(), which Qt calls with
/// every one that it posts; Qt's own dispatchers do so every turn, rebuild their poll set from a hash table and search
/// it again afterwards. With it and a DirectNotifier a packet costs 700 user instructions besides the decoder's instead
/// of 4,100.
///
/// It serves QTimer, QSocketNotifier (not of type Exception) and events posted by any thread. Timers are kept to the
/// millisecond, whatever their type. A notifier goes, or is disabled, before its descriptor is closed. Event loops are
/// not nested in this process; process flags other than WaitForMoreEvents have no effect. Give it to
/// QCoreApplication::setEventDispatcher(), which takes it over, before the application object is made.
class EventDispatcher final : public QAbstractEventDispatcher {
    Q_OBJECT
public:
    /// Of a timer, in ms, in the type that Qt has for it.
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    using Interval = int;
#else
    using Interval = qint64;
#endif

    EventDispatcher();

    [[gnu::hot]] bool processEvents(QEventLoop::ProcessEventsFlags flags) override;

    void registerSocketNotifier(QSocketNotifier *notifier) override;
    void unregisterSocketNotifier(QSocketNotifier *notifier) override;

    void registerTimer(int id, Interval intervalMs, Qt::TimerType type, QObject *object) override;
    bool unregisterTimer(int id) override;
    bool unregisterTimers(QObject *object) override;
    QList<TimerInfo> registeredTimers(QObject *object) const override;
    /// Milliseconds, or -1 when there is no such timer.
    int remainingTime(int id) override;

    void wakeUp() override;
    void interrupt() override
    {
        wakeUp();
    }

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    bool hasPendingEvents() override
    {
        return wakeUpPending_;
    }
    void flush() override {}
#endif

private:
    struct Socket {
        int fd;
        QSocketNotifier *reader; ///< null: nobody waits for input
        QSocketNotifier *writer;
        DirectNotifier *direct; ///< the reader, if it is one of these
    };
    struct Timer {
        int id;
        Qt::TimerType type;
        qint64 interval; ///< ms
        qint64 due;      ///< ms of the monotonic clock
        QObject *object;
    };

    enum class Turn { Idle, Direct, Delivered };
    [[gnu::hot]] Turn takeTurn(int timeoutMs);
    void dispatchPosted();
    [[gnu::hot]] Turn dispatchSocket(int fd, unsigned events);
    [[gnu::hot]] bool dispatchTimers();
    [[gnu::hot]] int timeToNextTimer() const;

    [[gnu::hot]] Socket *socketOf(int fd);
    QSocketNotifier **placeOf(QSocketNotifier *notifier, Socket &socket) const;
    void control(int operation, const Socket &socket);
    template <typename Predicate>
    bool removeTimers(Predicate predicate);

    FileDescriptor epoll_;
    FileDescriptor wakeUp_; ///< readable after wakeUp()
    std::atomic<bool> wakeUpPending_{true};
    QVarLengthArray<Socket, 8> sockets_; ///< searched from the front
    std::vector<Timer> timers_;
};
