#include "sim/waiting.h"

#include <QCoreApplication>
#include <QDBusPendingCallWatcher>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

namespace sim {

namespace {
// A condition may depend on what no event of ours announces, as a reading of /proc does.
constexpr int WakeUpMs = 10;
// Longer than anything that a daemon may take to answer, so that a slow answer is seen as what it is.
constexpr int CallTimeoutMs = 10'000;
} // namespace

bool waitFor(const std::function<bool()> &condition, int ms)
{
    const QDeadlineTimer deadline(ms);
    QTimer wakeUp;
    wakeUp.start(WakeUpMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        // Outside of QCoreApplication::exec() nobody else carries these out.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return true;
}

QDBusMessage callAndWait(const QDBusConnection &connection, const QDBusMessage &call)
{
    QDBusPendingCallWatcher watcher(connection.asyncCall(call, CallTimeoutMs));
    if (!watcher.isFinished()) {
        QEventLoop loop;
        QObject::connect(&watcher, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return watcher.reply();
}

} // namespace sim
