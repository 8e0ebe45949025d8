#include "bus/bluezcall.h"

#include "bus/names.h"

#include <QDBusConnection>

namespace bus {

QDBusMessage callBluez(const QString &path, const QString &interface, const QString &method,
                       const QVariantList &arguments, int timeoutMs)
{
    QDBusMessage call = QDBusMessage::createMethodCall(BluezService, path, interface, method);
    call.setArguments(arguments);
    return QDBusConnection::systemBus().call(call, QDBus::Block, timeoutMs);
}

} // namespace bus
