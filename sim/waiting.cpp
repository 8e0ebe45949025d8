// SPDX-License-Identifier: MIT
#include "sim/waiting.h"

#include <QCoreApplication>
#include <QDBusError>
#include <QDBusPendingCallWatcher>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <limits>

namespace sim {

namespace {
// Wake up at this interval, because a condition may depend on data without an event, for example in /proc.
constexpr int WakeUpMs = 10;
// Count at most this time between two evaluations. A longer time means that this process was stopped, and most likely
// also the process that it waits for.
constexpr qint64 LongestStepMs = 1000;
// Longer than any permitted answer of the daemon, so that a test can recognise a slow answer.
constexpr int CallTimeoutMs = 10'000;
} // namespace

bool waitFor(const std::function<bool()> &condition, int ms)
{
    constexpr qint64 NsPerMs = 1'000'000;
    qint64 left = ms * NsPerMs;
    QElapsedTimer sinceStep;
    sinceStep.start();
    QTimer wakeUp;
    wakeUp.start(WakeUpMs);
    while (!condition()) {
        if (left <= 0)
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        // Deleted objects need this call, because QCoreApplication::exec() is not running.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        left -= std::min(sinceStep.nsecsElapsed(), LongestStepMs * NsPerMs);
        sinceStep.start();
    }
    return true;
}

QDBusConnection connectToBus(const QString &address)
{
    static int connections = 0;
    return QDBusConnection::connectToBus(address, QStringLiteral("board-%1").arg(connections++));
}

QDBusMessage callAndWait(const QDBusConnection &connection, const QDBusMessage &call)
{
    const QDBusPendingCallWatcher watcher(connection.asyncCall(call, std::numeric_limits<int>::max())); // no timeout
    if (waitFor([&] { return watcher.isFinished(); }, CallTimeoutMs))
        return watcher.reply();
    return QDBusMessage::createError(QDBusError::NoReply, QStringLiteral("No reply to ") + call.member());
}

} // namespace sim
