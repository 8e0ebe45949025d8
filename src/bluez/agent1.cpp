// SPDX-License-Identifier: MIT
#include "bluez/agent1.h"

#include "bluez/adaptermanager.h"
#include "bluez/names.h"
#include "log/log.h"

Agent1::Agent1(AdapterManager *manager) : QDBusAbstractAdaptor(manager), manager_(*manager)
{
    qDebug("Agent1::Agent1()");
}

Agent1::~Agent1()
{
    qDebug("Agent1::~Agent1()");
}

bluez::Call Agent1::registration()
{
    qDebug("RegisterAgent");
    return {bluez::RootPath,
            bluez::AgentManagerInterface,
            QStringLiteral("RegisterAgent"),
            {QVariant::fromValue(QDBusObjectPath(bluez::AgentPath)), QStringLiteral("NoInputNoOutput")},
            bluez::Need::Vital};
}

bluez::Call Agent1::defaultRequest()
{
    return {bluez::RootPath,
            bluez::AgentManagerInterface,
            QStringLiteral("RequestDefaultAgent"),
            {QVariant::fromValue(QDBusObjectPath(bluez::AgentPath))},
            bluez::Need::Vital};
}

void Agent1::Release()
{
    qDebug("Agent1::Release");
}

void Agent1::AuthorizeService(const QDBusObjectPath &path, const QString &uuid)
{
    logDebug("0Agent1::AuthorizeService") << path.path() << uuid;
    if (path.path() == manager_.ConnectedDevicePath())
        return;
    qDebug("0Rejected");
    manager_.sendErrorReply(QStringLiteral("org.bluez.Error.Rejected"),
                            QStringLiteral("Only one connection permitted"));
}

void Agent1::RequestAuthorization(const QDBusObjectPath &path)
{
    logDebug("0Agent1::RequestAuthorization") << path.path();
}

QString Agent1::RequestPinCode(const QDBusObjectPath & /*path*/, const QString & /*pincode*/)
{
    qDebug("Agent1::RequestPinCode()");
    return {};
}
