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

/// The event loop of the main thread. It serves QTimer, QSocketNotifier and events posted by any thread.
///
/// Not Qt's event dispatcher, because the wake-up dominates the cost of a packet once the decoder is fast. Besides the
/// decoder's instructions, a packet takes 700 user instructions with this class and a DirectNotifier. With Qt's
/// dispatcher it takes 4,100.
///
/// One iteration of the loop is one epoll_wait() for one event. The loop handles posted events only after wakeUp(),
/// which Qt calls for each posted event. Qt's own dispatchers check for posted events in every iteration, rebuild their
/// poll set from a hash table and search the set again afterwards.
///
/// wakeUp() blocks QtDBus's thread while that thread posts events faster than the main thread handles them. During a
/// flood of signals QtDBus then reads no faster than the main thread works, and packets are still handled in between.
/// The bus daemon queues the remaining signals or drops them at its own limit. Without this limit, QtDBus reads until
/// the queued messages take 63 MiB. libdbus then stops reading for good, because it asks for the restart in the main
/// thread, and QtDBus can restart the reading only in its own thread.
///
/// Timers of every type are accurate to the millisecond. Delete or disable a notifier before closing its descriptor.
/// Event loops cannot be nested: a handler that starts one ends the process with a fatal message. Process flags other
/// than WaitForMoreEvents have no effect. Pass the object to QCoreApplication::setEventDispatcher(), which takes
/// ownership, before you create the application object.
class EventDispatcher final : public QAbstractEventDispatcher {
    Q_OBJECT
public:
    /// Interval of a timer in ms, in the type that Qt's interface uses.
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
    /// Returns the remaining time in ms, 0 for an overdue timer and -1 for an unknown timer.
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
        std::array<QSocketNotifier *, 3> notifiers; ///< by type; null if not registered
        DirectNotifier *direct;                     ///< the Read notifier if it is a DirectNotifier, else null
    };
    struct Timer {
        int id;
        Qt::TimerType type;
        qint64 interval; ///< ms
        qint64 due;      ///< ms of the monotonic clock
        QObject *object;
    };

    enum class Dispatched { Nothing, DirectOnly, QtEvents };
    [[gnu::hot]] Dispatched runOnce(int timeoutMs);
    void dispatchPosted();
    [[gnu::hot]] Dispatched dispatchSocket(int fd, unsigned events);
    [[gnu::hot]] bool dispatchTimers();
    [[gnu::hot]] int timeToNextTimer() const;

    [[gnu::hot]] Socket *findSocket(int fd);
    void control(int operation, const Socket &socket);
    template <typename Predicate>
    bool removeTimers(Predicate predicate);

    FileDescriptor epoll_;
    FileDescriptor wakeUp_; ///< readable after wakeUp()
    std::atomic<bool> wakeUpPending_{true};
    QSemaphore queueSlots_;              ///< free slots for events that QtDBus posts
    QVarLengthArray<Socket, 8> sockets_; ///< linear search, because there are only a few
    std::vector<Timer> timers_;
    bool processing_ = false;
};
