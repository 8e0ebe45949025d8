// SPDX-License-Identifier: MIT
#include "control/dbuscommandlistener.h"

#include "control/abstractmanager.h"
#include "control/names.h"
#include "log/log.h"

#include <QDBusConnection>
#include <QDBusError>

DBusCommandListener::DBusCommandListener(AbstractManager *manager) : QDBusAbstractAdaptor(manager), manager_(*manager)
{
    // libdbus itself emits this signal when the connection ends.
    QDBusConnection::systemBus().connect(QString(), control::LocalPath, control::LocalInterface,
                                         QStringLiteral("Disconnected"), this, SLOT(busLost()));
}

void DBusCommandListener::claimService(AbstractManager *manager)
{
    QDBusConnection systemBus = QDBusConnection::systemBus();
    qDebug("Register Service");
    if (!systemBus.registerService(control::Service)) {
        QString error = systemBus.lastError().message();
        if (error.isEmpty()) // the bus reports a name that is already owned without an error
            error = control::Service + QLatin1String(" is taken");
        qFatal("0%s", qUtf8Printable(error));
    }
    logDebug("Register Object") << systemBus.registerObject(control::ObjectPath, manager,
                                                            QDBusConnection::ExportAdaptors);
}

void DBusCommandListener::busLost()
{
    qFatal("0The system bus is gone");
}

bool DBusCommandListener::adapterPresent() const
{
    return manager_.IsAdapterPresent();
}

bool DBusCommandListener::connected() const
{
    return manager_.IsConnected();
}

void DBusCommandListener::setConnected(bool connected)
{
    if (!connected)
        manager_.Disconnect();
}

bool DBusCommandListener::streaming() const
{
    return manager_.IsStreaming();
}

QString DBusCommandListener::name() const
{
    return manager_.Name();
}

void DBusCommandListener::ResetAlias()
{
    qDebug("DBusCommandListener::ResetAlias()");
    manager_.ResetAlias();
}

bool DBusCommandListener::IsAdapterPresent()
{
    qDebug("DBusCommandListener::IsAdapterPresent()");
    return adapterPresent();
}

void DBusCommandListener::SelectBluetooth()
{
    qDebug("DBusCommandListener::SelectBluetooth()");
    manager_.SelectBluetooth();
}
