#include "bluez/call.h"

#include "bluez/names.h"
#include "log/log.h"

#include <QDBusConnection>
#include <QDBusVariant>

namespace bluez {

QDBusMessage call(const QString &path, const QString &interface, const QString &method, const QVariantList &arguments,
                  int timeoutMs)
{
    QDBusMessage message = QDBusMessage::createMethodCall(Service, path, interface, method);
    message.setArguments(arguments);
    return QDBusConnection::systemBus().call(message, QDBus::Block, timeoutMs);
}

void SetProperty(const QString &interface, const QString &path, const QString &name, const QVariant &value)
{
    logDebug() << "SetProperty" << interface << path << name << value;
    const QDBusMessage reply = call(path, PropertiesInterface, QStringLiteral("Set"),
                                    {interface, name, QVariant::fromValue(QDBusVariant(value))});
    logDebug() << reply.errorName() << reply.errorMessage();
}

QVariant GetProperty(const QString &interface, const QString &path, const QString &name)
{
    logDebug() << "GetProperty" << interface << path << name;
    const QDBusMessage reply = call(path, PropertiesInterface, QStringLiteral("Get"), {interface, name}, PhoneAnswerMs);
    logDebug() << reply.errorName() << reply.errorMessage();
    if (reply.type() != QDBusMessage::ReplyMessage)
        return {};
    if (reply.signature() != QLatin1String("v")) {
        logDebug() << "GetProperty: unexpected types" << reply.signature();
        return {};
    }
    return qvariant_cast<QDBusVariant>(reply.arguments().constFirst()).variant();
}

} // namespace bluez
