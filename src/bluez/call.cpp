#include "bluez/call.h"

#include "bluez/names.h"

#include <QDBusConnection>

namespace bluez {

QDBusMessage call(const QString &path, const QString &interface, const QString &method, const QVariantList &arguments,
                  int timeoutMs)
{
    QDBusMessage message = QDBusMessage::createMethodCall(Service, path, interface, method);
    message.setArguments(arguments);
    return QDBusConnection::systemBus().call(message, QDBus::Block, timeoutMs);
}

} // namespace bluez
