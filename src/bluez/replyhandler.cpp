// SPDX-License-Identifier: MIT
#include "bluez/replyhandler.h"

#include "bluez/names.h"
#include "bluez/pendingcall.h"
#include "log/log.h"

#include <QDBusConnection>

namespace bluez {

namespace {

/// Returns the method's name. For "Get" and "Set" the property's name follows.
QString nameOf(const QDBusMessage &call)
{
    if (call.interface() != PropertiesInterface)
        return call.member();
    return call.member() + QLatin1Char(' ') + call.arguments().at(1).toString();
}

} // namespace

void ReplyHandler::send(const Call &call)
{
    QDBusMessage message = QDBusMessage::createMethodCall(Service, call.path, call.interface, call.method);
    message.setArguments(call.arguments);
    isPropertyCall_ = call.interface == PropertiesInterface;
    QDBusConnection bus = QDBusConnection::systemBus();
    // Not QDBusPendingCallWatcher, because it is created after the call. A signal sent after the reply could then
    // arrive before the reply.
    if (!bus.callWithCallback(message, this, SLOT(succeeded(QDBusMessage)), SLOT(failed(QDBusError, QDBusMessage)),
                              call.timeoutMs))
        failed(bus.lastError(), message);
}

void ReplyHandler::succeeded(const QDBusMessage &reply)
{
    finish(reply);
}

void ReplyHandler::failed(const QDBusError &error, const QDBusMessage &call)
{
    // "AlreadyExists" is harmless. The agent, for example, is registered again with each adapter.
    const bool vital = need_ == Need::Vital && error.name() != QLatin1String("org.bluez.Error.AlreadyExists");
    logDebug(vital ? "0Call to BlueZ failed:" : "Call to BlueZ failed:")
        << nameOf(call) << call.path() << error.name() << error.message();
    finish(QDBusMessage::createError(error));
}

void ReplyHandler::finish(const QDBusMessage &reply)
{
    deleteLater();
    if (isPropertyCall_)
        logDebug() << reply.errorName() << reply.errorMessage();
    if (pendingCall_)
        pendingCall_->finish(reply);
}

} // namespace bluez
