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
// A condition may depend on what no event of ours announces, as a reading of /proc does.
constexpr int WakeUpMs = 10;
// Between two looks lies a wake-up and whatever the events did. More than this is a process that was stopped for a
// while, and what it waits for was most likely stopped with it.
constexpr qint64 LongestLookMs = 1000;
// Longer than anything that a daemon may take to answer, so that a slow answer is seen as what it is.
constexpr int CallTimeoutMs = 10'000;
} // namespace

bool waitFor(const std::function<bool()> &condition, int ms)
{
    constexpr qint64 NsPerMs = 1'000'000;
    qint64 left = ms * NsPerMs;
    QElapsedTimer sinceLook;
    sinceLook.start();
    QTimer wakeUp;
    wakeUp.start(WakeUpMs);
    while (!condition()) {
        if (left <= 0)
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        // Outside of QCoreApplication::exec() nobody else carries these out.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        left -= std::min(sinceLook.nsecsElapsed(), LongestLookMs * NsPerMs);
        sinceLook.start();
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
    const QDBusPendingCallWatcher watcher(connection.asyncCall(call, std::numeric_limits<int>::max())); // no limit
    if (waitFor([&] { return watcher.isFinished(); }, CallTimeoutMs))
        return watcher.reply();
    return QDBusMessage::createError(QDBusError::NoReply, QStringLiteral("No reply to ") + call.member());
}

} // namespace sim
