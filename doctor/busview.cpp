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
    const QDBusMessage answer = bus.call(call(name, "/org/freedesktop/DBus", name, method, arguments), QDBus::Block,
                                         static_cast<int>(AnswerLimit.count()));
    return answer.type() == QDBusMessage::ReplyMessage ? answer.arguments().value(0) : QVariant();
}

Peer lookAt(const QDBusConnection &bus, const QString &name)
{
    Peer peer;
    const QString owner = askBus(bus, "GetNameOwner", {name}).toString();
    peer.isThere = !owner.isEmpty();
    if (!peer.isThere)
        return peer;
    if (const QVariant user = askBus(bus, "GetConnectionUnixUser", {owner}); user.isValid())
        peer.user = user.toUInt();
    peer.process = askBus(bus, "GetConnectionUnixProcessID", {owner}).toUInt();
    return peer;
}

} // namespace

BusView lookAtBus()
{
    BusView view;
    const QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SystemBus, "doctor");
    if (!bus.isConnected()) {
        view.error = bus.lastError().message();
        return view;
    }
    view.serviceIsStarted = askBus(bus, "ListActivatableNames", {}).toStringList().contains(control::Service);
    view.service = lookAt(bus, control::Service);
    view.bluez = lookAt(bus, bluez::Service);

    const auto limit = static_cast<int>(AnswerLimit.count());
    QDBusPendingCall state = bus.asyncCall(
        call(control::Service, control::ObjectPath, bluez::PropertiesInterface, "GetAll", {"org.kadobt.commands"}),
        limit);
    QDBusPendingCall objects = bus.asyncCall(
        call(bluez::Service, bluez::ObjectManagerPath, bluez::ObjectManagerInterface, "GetManagedObjects"), limit);
    state.waitForFinished();
    view.service.answer = state.reply();
    objects.waitForFinished();
    view.bluez.answer = objects.reply();
    return view;
}

bool isRefusal(const QDBusMessage &answer)
{
    return answer.errorName() == QDBusError::errorString(QDBusError::AccessDenied);
}

bool isSilence(const QDBusMessage &answer)
{
    return answer.errorName() == QDBusError::errorString(QDBusError::NoReply);
}

QString complaint(const QDBusMessage &answer)
{
    if (answer.type() == QDBusMessage::ErrorMessage)
        return answer.errorName() + ", " + answer.errorMessage();
    return QString("answers with unexpected types (%1)").arg(answer.signature());
}

} // namespace doctor
