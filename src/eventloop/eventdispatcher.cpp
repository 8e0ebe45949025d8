// SPDX-License-Identifier: MIT
#include "eventloop/eventdispatcher.h"

#include "eventloop/directnotifier.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QThread>
#include <QTimerEvent>
#include <QVarLengthArray>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <utility>

namespace {

// What QtDBus may post while this thread handles what it has. A packet waits for two such loads at most, which take
// milliseconds.
constexpr int MostWaiting = 8;

// QtDBus may hold a lock, or a call to the bus may be under way, that this thread waits for. Then both go on after
// this.
constexpr int LongestHoldMs = 20;

/// Whether this is the thread in which QtDBus reads; its class is all that tells. No other is held: a thread that emits
/// a queued signal holds a lock of Qt's meanwhile, one that this thread may need as well.
bool isQtDBusThread()
{
    return QThread::currentThread()->inherits("QDBusConnectionManager");
}

/// The events that a notifier waits for, by its type. A descriptor that has hung up or failed wakes all three.
constexpr std::array<unsigned, 3> Awaited{EPOLLIN, EPOLLOUT, EPOLLPRI};
static_assert(QSocketNotifier::Read == 0 && QSocketNotifier::Write == 1 && QSocketNotifier::Exception == 2);

// An epoll_wait() of more is none that anybody waits for; it keeps the milliseconds within an int.
constexpr qint64 LongestWaitMs = 24 * 60 * 60 * 1000;

qint64 now()
{
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return qint64{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

void notify(QSocketNotifier *notifier)
{
    QEvent event(QEvent::SockAct);
    QCoreApplication::sendEvent(notifier, &event);
}

} // namespace

EventDispatcher::EventDispatcher()
    : epoll_(::epoll_create1(EPOLL_CLOEXEC)),
      // Events may have been posted before there was a dispatcher to wake up.
      wakeUp_(::eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)), room_(MostWaiting)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = wakeUp_.get();
    if (::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, wakeUp_.get(), &event) != 0)
        qFatal("Event loop: %s", std::strerror(errno));
}

bool EventDispatcher::processEvents(QEventLoop::ProcessEventsFlags flags)
{
    if (std::exchange(processing_, true))
        qFatal("0Event loops are not nested here");
    const bool waits = (flags & QEventLoop::WaitForMoreEvents) != 0;
    Turn turn{};
    do {
        turn = takeTurn(waits ? timeToNextTimer() : 0);
    } while (turn == Turn::Direct && waits); // of which Qt need not hear; an exit() wakes up
    processing_ = false;
    return turn != Turn::Idle;
}

EventDispatcher::Turn EventDispatcher::takeTurn(int timeoutMs)
{
    Turn turn = Turn::Idle;
    // One event a turn: a handler may remove any notifier without one of its events being under way already.
    epoll_event event{};
    if (::epoll_wait(epoll_.get(), &event, 1, timeoutMs) > 0) {
        if (event.data.fd == wakeUp_.get()) {
            dispatchPosted();
            turn = Turn::Delivered;
        } else {
            turn = dispatchSocket(event.data.fd, event.events);
        }
    }
    return dispatchTimers() ? Turn::Delivered : turn;
}

void EventDispatcher::dispatchPosted()
{
    eventfd_t count = 0;
    ::eventfd_read(wakeUp_.get(), &count);
    wakeUpPending_ = false; // before the look at what was posted: what is posted from here on wakes up again
    room_.release(std::max(0, MostWaiting - room_.available()));
    QCoreApplication::sendPostedEvents();
}

void EventDispatcher::interrupt()
{
    wakeUp();
}

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
bool EventDispatcher::hasPendingEvents()
{
    return wakeUpPending_;
}
#endif

void EventDispatcher::wakeUp()
{
    if (!wakeUpPending_.exchange(true))
        ::eventfd_write(wakeUp_.get(), 1);
    if (isQtDBusThread() && !room_.tryAcquire(1, LongestHoldMs))
        room_.release(MostWaiting);
}

// --- Sockets

EventDispatcher::Turn EventDispatcher::dispatchSocket(int fd, unsigned events)
{
    Socket *socket = socketOf(fd);
    if (socket && socket->direct) {
        socket->direct->ready();
        return Turn::Direct;
    }
    for (size_t type = 0; socket && type < Awaited.size(); ++type) {
        if (socket->notifiers[type] && (events & (Awaited[type] | EPOLLHUP | EPOLLERR)) != 0) {
            notify(socket->notifiers[type]);
            socket = socketOf(fd); // the handler may have changed everything
        }
    }
    return Turn::Delivered;
}

EventDispatcher::Socket *EventDispatcher::socketOf(int fd)
{
    auto *socket = std::find_if(sockets_.begin(), sockets_.end(), [fd](const Socket &it) { return it.fd == fd; });
    return socket == sockets_.end() ? nullptr : socket;
}

void EventDispatcher::control(int operation, const Socket &socket)
{
    epoll_event event{};
    for (size_t type = 0; type < Awaited.size(); ++type)
        event.events |= socket.notifiers[type] ? Awaited[type] : 0U;
    event.data.fd = socket.fd;
    if (::epoll_ctl(epoll_.get(), operation, socket.fd, &event) != 0)
        qWarning("0Event loop: descriptor %d: %s", socket.fd, std::strerror(errno));
}

void EventDispatcher::registerSocketNotifier(QSocketNotifier *notifier)
{
    const auto fd = static_cast<int>(notifier->socket());
    Socket *socket = socketOf(fd);
    const bool isNew = !socket;
    if (isNew) {
        sockets_.append({fd, {}, nullptr});
        socket = &sockets_.last();
    }
    socket->notifiers[notifier->type()] = notifier;
    socket->direct = qobject_cast<DirectNotifier *>(socket->notifiers[QSocketNotifier::Read]);
    control(isNew ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, *socket);
}

void EventDispatcher::unregisterSocketNotifier(QSocketNotifier *notifier)
{
    Socket *socket = socketOf(static_cast<int>(notifier->socket()));
    if (!socket)
        return;
    socket->notifiers[notifier->type()] = nullptr;
    socket->direct = qobject_cast<DirectNotifier *>(socket->notifiers[QSocketNotifier::Read]);
    const bool isLast = socket->notifiers == decltype(socket->notifiers){};
    control(isLast ? EPOLL_CTL_DEL : EPOLL_CTL_MOD, *socket);
    if (isLast)
        sockets_.erase(socket);
}

// --- Timers

bool EventDispatcher::dispatchTimers()
{
    if (timers_.empty())
        return false;
    const qint64 time = now();
    QVarLengthArray<int, 16> due;
    for (const Timer &timer : timers_) {
        if (timer.due <= time)
            due.append(timer.id);
    }
    for (const int id : due) {
        const auto timer = std::find_if(timers_.begin(), timers_.end(), [id](const Timer &it) { return it.id == id; });
        if (timer == timers_.end() || timer->due > time) // stopped, or started anew, by the handler of another
            continue;
        timer->due += timer->interval;
        if (timer->due < time) // whole intervals were missed: they are not made up for
            timer->due = time + timer->interval;
        QTimerEvent event(id);
        QCoreApplication::sendEvent(timer->object, &event);
    }
    return !due.isEmpty();
}

int EventDispatcher::timeToNextTimer() const
{
    if (timers_.empty())
        return -1;
    const auto next = std::min_element(timers_.begin(), timers_.end(),
                                       [](const Timer &one, const Timer &other) { return one.due < other.due; });
    return static_cast<int>(std::clamp(next->due - now(), qint64{0}, LongestWaitMs));
}

void EventDispatcher::registerTimer(int id, Interval intervalMs, Qt::TimerType type, QObject *object)
{
    timers_.push_back({id, type, intervalMs, now() + intervalMs, object});
}

template <typename Predicate>
bool EventDispatcher::removeTimers(Predicate predicate)
{
    const auto removed = std::remove_if(timers_.begin(), timers_.end(), predicate);
    const bool any = removed != timers_.end();
    timers_.erase(removed, timers_.end());
    return any;
}

bool EventDispatcher::unregisterTimer(int id)
{
    return removeTimers([id](const Timer &timer) { return timer.id == id; });
}

bool EventDispatcher::unregisterTimers(QObject *object)
{
    return removeTimers([object](const Timer &timer) { return timer.object == object; });
}

QList<QAbstractEventDispatcher::TimerInfo> EventDispatcher::registeredTimers(QObject *object) const
{
    QList<TimerInfo> result;
    for (const Timer &timer : timers_) {
        if (timer.object == object)
            result << TimerInfo(timer.id, static_cast<int>(timer.interval), timer.type);
    }
    return result;
}

int EventDispatcher::remainingTime(int id)
{
    const auto timer = std::find_if(timers_.begin(), timers_.end(), [id](const Timer &it) { return it.id == id; });
    return timer == timers_.end() ? -1 : static_cast<int>(std::max(timer->due - now(), qint64{0}));
}
