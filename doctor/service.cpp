// SPDX-License-Identifier: MIT
#include "doctor/service.h"

#include "doctor/accounts.h"

#include <QDBusArgument>

namespace doctor {

namespace {

Finding owner(const BusView &bus)
{
    const QString about = "org.kadobt";
    if (!bus.service.isThere)
        return wrong(about,
                     bus.serviceIsStarted ? "nobody owns the name, a call would start its service"
                                          : "nobody owns the name, and the bus has no service for it",
                     "Is kado-bt installed, enabled and running? See systemctl status kado-bt and its log");
    if (!bus.service.user)
        return note(about, "the bus does not tell who owns the name");
    const QString user = userName(*bus.service.user);
    const QString seen = QString("process %1 of the user %2").arg(bus.service.process).arg(user);
    if (user == ServiceUser)
        return ok(about, seen);
    return note(about, seen, QString("The unit that is shipped runs it as %1").arg(ServiceUser));
}

Finding permission(const Peer &service, uid_t caller)
{
    const QString about = "control interface";
    const QString user = userName(caller);
    if (isRefusal(service.answer)) {
        const QString seen = QString("%1 may not call it").arg(user);
        if (isMember(caller, ServiceUser))
            return wrong(about, seen,
                         "Install the bus policy org.kadobt.conf, and have the bus read it: systemctl reload dbus");
        return note(about, seen, QString("Members of the group %1 may, and root").arg(ServiceUser));
    }
    if (isSilence(service.answer))
        return wrong(about, QString("no answer for %1 s").arg(AnswerLimit.count() / 1000),
                     "kado-bt hangs: a report with its log at level 9 is welcome. Restart it");
    if (!stateOf(service))
        return wrong(about, complaint(service.answer), "The owner of org.kadobt is no kado-bt, or ended just now");
    return ok(about, QString("answers %1").arg(user));
}

} // namespace

Findings lookAtService(const BusView &bus, uid_t caller)
{
    const QString about = "system bus";
    if (!bus.error.isEmpty())
        return {wrong(about, bus.error, "Start the system bus: without it there is no BlueZ and no kado-bt")};
    Findings findings{ok(about, "answers"), owner(bus)};
    if (bus.service.isThere)
        findings << permission(bus.service, caller);
    return findings;
}

std::optional<QVariantMap> stateOf(const Peer &service)
{
    if (service.answer.type() != QDBusMessage::ReplyMessage || service.answer.signature() != QLatin1String("a{sv}"))
        return {};
    return qdbus_cast<QVariantMap>(service.answer.arguments().value(0));
}

} // namespace doctor
