// SPDX-License-Identifier: MIT
#include "sim/control.h"

#include "bluez/names.h"
#include "control/names.h"
#include "sim/waiting.h"

#include <QDBusVariant>

namespace sim {

namespace {

const QString CommandInterface = QStringLiteral("org.kadobt.commands");

QDBusMessage messageTo(const QString &interface, const QString &method)
{
    return QDBusMessage::createMethodCall(control::Service, control::ObjectPath, interface, method);
}

} // namespace

Control::Control(const QString &address) : connection_(connectToBus(address)) {}

Control::~Control()
{
    const QString name = connection_.name();
    connection_ = QDBusConnection(QString());
    QDBusConnection::disconnectFromBus(name);
}

QDBusMessage Control::call(const QString &method)
{
    return callAndWait(connection_, messageTo(CommandInterface, method));
}

QVariant Control::property(const QString &name)
{
    QDBusMessage call = messageTo(bluez::PropertiesInterface, QStringLiteral("Get"));
    call << CommandInterface << name;
    return callAndWait(connection_, call).arguments().value(0).value<QDBusVariant>().variant();
}

QDBusMessage Control::setProperty(const QString &name, const QVariant &value)
{
    QDBusMessage call = messageTo(bluez::PropertiesInterface, QStringLiteral("Set"));
    call << CommandInterface << name << QVariant::fromValue(QDBusVariant(value));
    return callAndWait(connection_, call);
}

QString Control::introspect()
{
    const QDBusMessage call = messageTo(QStringLiteral("org.freedesktop.DBus.Introspectable"),
                                        QStringLiteral("Introspect"));
    return callAndWait(connection_, call).arguments().value(0).toString();
}

} // namespace sim
