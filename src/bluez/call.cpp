// SPDX-License-Identifier: MIT
#include "bluez/call.h"

#include "bluez/names.h"
#include "bluez/replyhandler.h"
#include "log/log.h"

#include <QDBusVariant>

namespace bluez {

Call SetProperty(const QString &interface, const QString &path, const QString &name, const QVariant &value, Need need)
{
    logDebug("SetProperty") << interface << path << name << value;
    const QVariant variant = QVariant::fromValue(QDBusVariant(value));
    return {path, PropertiesInterface, QStringLiteral("Set"), {interface, name, variant}, need, ReplyTimeoutMs};
}

Call GetProperty(const QString &interface, const QString &path, const QString &name)
{
    logDebug("GetProperty") << interface << path << name;
    return {path, PropertiesInterface, QStringLiteral("Get"), {interface, name}, Need::Optional, PhoneReplyTimeoutMs};
}

QVariant propertyValue(const QDBusMessage &reply)
{
    if (reply.type() != QDBusMessage::ReplyMessage)
        return {};
    if (reply.signature() != QLatin1String("v")) {
        logDebug("GetProperty: unexpected types") << reply.signature();
        return {};
    }
    return qvariant_cast<QDBusVariant>(reply.arguments().constFirst()).variant();
}

void send(const Call &call)
{
    (new ReplyHandler(call.need, nullptr))->send(call);
}

} // namespace bluez
