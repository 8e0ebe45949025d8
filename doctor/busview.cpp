// SPDX-License-Identifier: MIT
#include "doctor/busview.h"

#include "bluez/names.h"
#include "control/names.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusPendingCall>

namespace doctor {

namespace {

QDBusMessage call(const QString &service, const QString &path, const QString &interface, const QString &method,
                  const QVariantList &arguments = {})
{
    QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
    message.setArguments(arguments);
    message.setAutoStartService(false);
    return message;
}

QVariant askBus(const QDBusConnection &bus, const char *method, const QVariantList &arguments)
{
    const QString name = "org.freedesktop.DBus";
    const QDBusMessage reply = bus.call(call(name, "/org/freedesktop/DBus", name, method, arguments), QDBus::Block,
                                        static_cast<int>(CallTimeout.count()));
    return reply.type() == QDBusMessage::ReplyMessage ? reply.arguments().value(0) : QVariant();
}

Peer queryService(const QDBusConnection &bus, const QString &name)
{
    Peer peer;
    const QString owner = askBus(bus, "GetNameOwner", {name}).toString();
    peer.hasOwner = !owner.isEmpty();
    if (!peer.hasOwner)
        return peer;
    if (const QVariant user = askBus(bus, "GetConnectionUnixUser", {owner}); user.isValid())
        peer.user = user.toUInt();
    peer.process = askBus(bus, "GetConnectionUnixProcessID", {owner}).toUInt();
    return peer;
}

} // namespace

BusView queryBus()
{
    BusView view;
    const QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SystemBus, "doctor");
    if (!bus.isConnected()) {
        view.error = bus.lastError().message();
        return view;
    }
    view.isActivatable = askBus(bus, "ListActivatableNames", {}).toStringList().contains(control::Service);
    view.service = queryService(bus, control::Service);
    view.bluez = queryService(bus, bluez::Service);

    const auto limit = static_cast<int>(CallTimeout.count());
    QDBusPendingCall state = bus.asyncCall(
        call(control::Service, control::ObjectPath, bluez::PropertiesInterface, "GetAll", {"org.kadobt.commands"}),
        limit);
    QDBusPendingCall objects = bus.asyncCall(
        call(bluez::Service, bluez::ObjectManagerPath, bluez::ObjectManagerInterface, "GetManagedObjects"), limit);
    state.waitForFinished();
    view.service.reply = state.reply();
    objects.waitForFinished();
    view.bluez.reply = objects.reply();
    return view;
}

bool isAccessDenied(const QDBusMessage &reply)
{
    return reply.errorName() == QDBusError::errorString(QDBusError::AccessDenied);
}

bool isTimeout(const QDBusMessage &reply)
{
    return reply.errorName() == QDBusError::errorString(QDBusError::NoReply);
}

QString errorText(const QDBusMessage &reply)
{
    if (reply.type() == QDBusMessage::ErrorMessage)
        return reply.errorName() + ", " + reply.errorMessage();
    return QString("the answer has unexpected types (%1)").arg(reply.signature());
}

} // namespace doctor
