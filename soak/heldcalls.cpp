#include "soak/heldcalls.h"

#include <utility>

namespace sim {

void HeldCalls::hold(const QString &member)
{
    member_ = member;
    bluez_.intercept(member, [this](const QDBusMessage &call) {
        calls_.append(call);
        return true;
    });
}

void HeldCalls::answer()
{
    bluez_.stopIntercepting(std::exchange(member_, QString()));
    const QList<QDBusMessage> calls = std::exchange(calls_, {});
    for (const QDBusMessage &call : calls)
        bluez_.answer(call);
}

void HeldCalls::objectGone(const QString &path, bool answered)
{
    const QList<QDBusMessage> calls = std::exchange(calls_, {});
    for (const QDBusMessage &call : calls) {
        if (call.path() != path && !call.path().startsWith(path + QLatin1Char('/')))
            calls_.append(call);
        else if (answered)
            bluez_.answer(call);
    }
}

} // namespace sim
