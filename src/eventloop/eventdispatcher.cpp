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

// Events that QtDBus may queue before it must wait for the main thread. A packet waits for at most two such batches,
// which take milliseconds.
constexpr int MaxQueuedEvents = 8;

// The main thread may be waiting for a lock that QtDBus's thread holds, or for a bus call that QtDBus's thread handles.
// This timeout ends such a deadlock.
constexpr int MaxBlockMs = 20;

/// Returns whether the calling thread is the one in which QtDBus reads. Only the class of the thread object tells. No
/// other thread may be blocked, because a thread that emits a queued signal holds a lock of Qt that the main thread may
/// need.
bool isQtDBusThread()
{
    return QThread::currentThread()->inherits("QDBusConnectionManager");
}

/// The epoll event of each notifier type. EPOLLHUP and EPOLLERR activate all three types.
constexpr std::array<unsigned, 3> EpollEvents{EPOLLIN, EPOLLOUT, EPOLLPRI};
static_assert(QSocketNotifier::Read == 0 && QSocketNotifier::Write == 1 && QSocketNotifier::Exception == 2);

// Cap a wait at one day so that it fits epoll's int.
constexpr qint64 MaxWaitMs = 24 * 60 * 60 * 1000;

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
      // Starts readable, because events may have been posted before the dispatcher existed.
      wakeUp_(::eventfd(1, EFD_CLOEXEC | EFD_NONBLOCK)), queueSlots_(MaxQueuedEvents)
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
    Dispatched dispatched{};
    // Stay here while only packets arrive, because Qt need not see them. exit() ends the wait with wakeUp().
    do {
        dispatched = runOnce(waits ? timeToNextTimer() : 0);
    } while (dispatched == Dispatched::DirectOnly && waits);
    processing_ = false;
    return dispatched != Dispatched::Nothing;
}

EventDispatcher::Dispatched EventDispatcher::runOnce(int timeoutMs)
{
    Dispatched dispatched = Dispatched::Nothing;
    // One event at a time, because a handler may remove any notifier and no event may then be left for it.
    epoll_event event{};
    if (::epoll_wait(epoll_.get(), &event, 1, timeoutMs) > 0) {
        if (event.data.fd == wakeUp_.get()) {
            dispatchPosted();
            dispatched = Dispatched::QtEvents;
        } else {
            dispatched = dispatchSocket(event.data.fd, event.events);
        }
    }
    return dispatchTimers() ? Dispatched::QtEvents : dispatched;
}

void EventDispatcher::dispatchPosted()
{
    eventfd_t count = 0;
    ::eventfd_read(wakeUp_.get(), &count);
    wakeUpPending_ = false; // before sendPostedEvents(), so that an event posted from here on wakes the loop again
    queueSlots_.release(std::max(0, MaxQueuedEvents - queueSlots_.available()));
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
    if (isQtDBusThread() && !queueSlots_.tryAcquire(1, MaxBlockMs))
        queueSlots_.release(MaxQueuedEvents);
}

// --- Sockets

EventDispatcher::Dispatched EventDispatcher::dispatchSocket(int fd, unsigned events)
{
    Socket *socket = findSocket(fd);
    if (socket && socket->direct) {
        socket->direct->ready();
        return Dispatched::DirectOnly;
    }
    for (size_t type = 0; socket && type < EpollEvents.size(); ++type) {
        if (socket->notifiers[type] && (events & (EpollEvents[type] | EPOLLHUP | EPOLLERR)) != 0) {
            notify(socket->notifiers[type]);
            socket = findSocket(fd); // the handler may have removed or moved the entry
        }
    }
    return Dispatched::QtEvents;
}

EventDispatcher::Socket *EventDispatcher::findSocket(int fd)
{
    auto *socket = std::find_if(sockets_.begin(), sockets_.end(), [fd](const Socket &it) { return it.fd == fd; });
    return socket == sockets_.end() ? nullptr : socket;
}

void EventDispatcher::control(int operation, const Socket &socket)
{
    epoll_event event{};
    for (size_t type = 0; type < EpollEvents.size(); ++type)
        event.events |= socket.notifiers[type] ? EpollEvents[type] : 0U;
    event.data.fd = socket.fd;
    if (::epoll_ctl(epoll_.get(), operation, socket.fd, &event) != 0)
        qWarning("0Event loop: descriptor %d: %s", socket.fd, std::strerror(errno));
}

void EventDispatcher::registerSocketNotifier(QSocketNotifier *notifier)
{
    const auto fd = static_cast<int>(notifier->socket());
    Socket *socket = findSocket(fd);
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
    Socket *socket = findSocket(static_cast<int>(notifier->socket()));
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
        if (timer == timers_.end() || timer->due > time) // another timer's handler stopped or restarted it
            continue;
        timer->due += timer->interval;
        if (timer->due < time) // skip the intervals that were missed
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
    return static_cast<int>(std::clamp(next->due - now(), qint64{0}, MaxWaitMs));
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
