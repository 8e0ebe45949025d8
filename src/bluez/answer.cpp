// SPDX-License-Identifier: MIT
#include "bluez/answer.h"

#include "bluez/names.h"
#include "bluez/pendingcall.h"
#include "log/log.h"

#include <QDBusConnection>

namespace bluez {

namespace {

/// The method's name; behind "Get" and "Set" that of the property.
QString nameOf(const QDBusMessage &call)
{
    if (call.interface() != PropertiesInterface)
        return call.member();
    return call.member() + QLatin1Char(' ') + call.arguments().at(1).toString();
}

} // namespace

void Answer::await(const Call &call)
{
    QDBusMessage message = QDBusMessage::createMethodCall(Service, call.path, call.interface, call.method);
    message.setArguments(call.arguments);
    ofProperty_ = call.interface == PropertiesInterface;
    QDBusConnection bus = QDBusConnection::systemBus();
    // A QDBusPendingCallWatcher would be made after the call: a signal that follows the answer could overtake it.
    if (!bus.callWithCallback(message, this, SLOT(succeeded(QDBusMessage)), SLOT(failed(QDBusError, QDBusMessage)),
                              call.timeoutMs))
        failed(bus.lastError(), message);
}

void Answer::succeeded(const QDBusMessage &reply)
{
    finish(reply);
}

void Answer::failed(const QDBusError &error, const QDBusMessage &call)
{
    // The agent, for instance, which is registered anew with each adapter: the speaker works.
    const bool vital = need_ == Need::Vital && error.name() != QLatin1String("org.bluez.Error.AlreadyExists");
    logDebug(vital ? "0Call to BlueZ failed:" : "Call to BlueZ failed:")
        << nameOf(call) << call.path() << error.name() << error.message();
    finish(QDBusMessage::createError(error));
}

void Answer::finish(const QDBusMessage &reply)
{
    deleteLater();
    if (ofProperty_)
        logDebug() << reply.errorName() << reply.errorMessage();
    if (asker_)
        asker_->finish(reply);
}

} // namespace bluez
