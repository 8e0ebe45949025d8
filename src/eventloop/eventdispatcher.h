// SPDX-License-Identifier: MIT
#pragma once

#include "eventloop/filedescriptor.h"

#include <QAbstractEventDispatcher>
#include <QList>
#include <QSemaphore>
#include <QVarLengthArray>

#include <array>
#include <atomic>
#include <vector>

class DirectNotifier;
class QSocketNotifier;

/// The main thread's event loop. Our own, because a wake-up is what a packet costs once the decoder is fast: with this
/// one and a DirectNotifier it takes 700 user instructions besides the decoder's, with Qt's 4,100.
///
/// A turn is one epoll_wait() for one event. Posted events are looked at only after a wakeUp(), which Qt calls with
/// every one that it posts; Qt's own dispatchers do so every turn, rebuild their poll set from a hash table and search
/// it again afterwards.
///
/// QtDBus's thread is held when it posts faster than events are handled. So it reads no more of a flood of signals than
/// is handled, and packets have their turn; the bus keeps the rest, or drops it at a limit of its own. Left to itself
/// it reads on until the messages that wait take 63 MiB. There libdbus stops reading, and the bus is never heard again:
/// QtDBus can start the reading anew only in its own thread, and libdbus asks for it in this one.
///
/// It serves QTimer, QSocketNotifier and events posted by any thread. Timers are kept to the millisecond, whatever
/// their type. A notifier goes, or is disabled, before its descriptor is closed. Event loops are not nested: a handler
/// that enters one ends the process with a fatal message. Process flags other than WaitForMoreEvents have no effect.
/// Give it to QCoreApplication::setEventDispatcher(), which takes it over, before the application object is made.
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
    void interrupt() override;

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    bool hasPendingEvents() override;
    void flush() override {}
#endif

private:
    struct Socket {
        int fd;
        std::array<QSocketNotifier *, 3> notifiers; ///< by type; null: none
        DirectNotifier *direct;                     ///< the reader, if it is one of these
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
    void control(int operation, const Socket &socket);
    template <typename Predicate>
    bool removeTimers(Predicate predicate);

    FileDescriptor epoll_;
    FileDescriptor wakeUp_; ///< readable after wakeUp()
    std::atomic<bool> wakeUpPending_{true};
    QSemaphore room_;                    ///< for what QtDBus posts
    QVarLengthArray<Socket, 8> sockets_; ///< searched from the front
    std::vector<Timer> timers_;
    bool processing_ = false;
};
