#include "sim/control.h"

#include "bluez/names.h"
#include "control/names.h"
#include "sim/waiting.h"

#include <QDBusVariant>

namespace sim {

namespace {

const QString CommandInterface = QStringLiteral("org.kadobt.commands");

QString newConnectionName()
{
    static int instances = 0;
    return QStringLiteral("board-%1").arg(instances++);
}

} // namespace

Control::Control(const QString &address) : connection_(QDBusConnection::connectToBus(address, newConnectionName())) {}

Control::~Control()
{
    const QString name = connection_.name();
    connection_ = QDBusConnection(QString());
    QDBusConnection::disconnectFromBus(name);
}

QDBusMessage Control::call(const QString &method)
{
    return callAndWait(connection_,
                       QDBusMessage::createMethodCall(control::Service, control::ObjectPath, CommandInterface, method));
}

QVariant Control::property(const QString &name)
{
    QDBusMessage call = QDBusMessage::createMethodCall(control::Service, control::ObjectPath,
                                                       bluez::PropertiesInterface, QStringLiteral("Get"));
    call << CommandInterface << name;
    return callAndWait(connection_, call).arguments().value(0).value<QDBusVariant>().variant();
}

QDBusMessage Control::setProperty(const QString &name, const QVariant &value)
{
    QDBusMessage call = QDBusMessage::createMethodCall(control::Service, control::ObjectPath,
                                                       bluez::PropertiesInterface, QStringLiteral("Set"));
    call << CommandInterface << name << QVariant::fromValue(QDBusVariant(value));
    return callAndWait(connection_, call);
}

} // namespace sim
