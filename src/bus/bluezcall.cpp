#include "bus/bluezcall.h"

#include "bus/names.h"

#include <QDBusConnection>

namespace bus {

namespace {
// Bringing up a radio may take BlueZ seconds; this is what the bus libraries grant by default.
constexpr int AnswerTimeoutMs = 25'000;
} // namespace

QDBusMessage callBluez(const QString &path, const QString &interface, const QString &method,
                       const QVariantList &arguments)
{
    QDBusMessage call = QDBusMessage::createMethodCall(BluezService, path, interface, method);
    call.setArguments(arguments);
    return QDBusConnection::systemBus().call(call, QDBus::Block, AnswerTimeoutMs);
}

} // namespace bus
