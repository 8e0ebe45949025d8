// SPDX-License-Identifier: MIT
#include "doctor/service.h"

#include "doctor/accounts.h"

#include <QDBusArgument>

namespace doctor {

namespace {

Finding owner(const BusView &bus)
{
    const QString about = "org.kadobt";
    if (!bus.service.hasOwner)
        return wrong(about,
                     bus.isActivatable ? "no process owns the name; a call would start the service"
                                       : "no process owns the name, and the bus has no service file for it",
                     "Check that kado-bt is installed, enabled and running: systemctl status kado-bt, and its log");
    if (!bus.service.user)
        return note(about, "the bus does not report the owner's user");
    const QString user = userName(*bus.service.user);
    const QString seen = QString("process %1 of the user %2").arg(bus.service.process).arg(user);
    if (user == ServiceUser)
        return ok(about, seen);
    return note(about, seen, QString("The shipped unit runs it as the user %1").arg(ServiceUser));
}

Finding permission(const Peer &service, uid_t caller)
{
    const QString about = "control interface";
    const QString user = userName(caller);
    if (isAccessDenied(service.reply)) {
        const QString seen = QString("the user %1 may not call it").arg(user);
        if (isMember(caller, ServiceUser))
            return wrong(about, seen, "Install the bus policy org.kadobt.conf, then run systemctl reload dbus");
        return note(about, seen, QString("Only root and members of the group %1 may call it").arg(ServiceUser));
    }
    if (isTimeout(service.reply))
        return wrong(about, QString("no answer within %1 s").arg(CallTimeout.count() / 1000),
                     "kado-bt hangs. Restart it, and report the fault with its log at level 9");
    if (!stateOf(service))
        return wrong(about, errorText(service.reply),
                     "The owner of org.kadobt is another program, or kado-bt has just ended");
    return ok(about, QString("answers the user %1").arg(user));
}

} // namespace

Findings checkService(const BusView &bus, uid_t caller)
{
    const QString about = "system bus";
    if (!bus.error.isEmpty())
        return {wrong(about, bus.error, "Start the system bus. BlueZ and kado-bt need it")};
    Findings findings{ok(about, "answers"), owner(bus)};
    if (bus.service.hasOwner)
        findings << permission(bus.service, caller);
    return findings;
}

std::optional<QVariantMap> stateOf(const Peer &service)
{
    if (service.reply.type() != QDBusMessage::ReplyMessage || service.reply.signature() != QLatin1String("a{sv}"))
        return {};
    return qdbus_cast<QVariantMap>(service.reply.arguments().value(0));
}

} // namespace doctor
