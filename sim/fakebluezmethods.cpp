// SPDX-License-Identifier: MIT
// The D-Bus methods of FakeBluez and the introspection of its tree.

#include "bluez/names.h"
#include "sim/fakebluez.h"

#include <QDBusMetaType>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>

#include <algorithm>
#include <utility>

namespace sim {

struct FakeBluez::Method {
    QLatin1String interface;
    QLatin1String name;
    QLatin1String in; ///< D-Bus signature
    void (FakeBluez::*answer)(const QDBusMessage &call);
};

namespace {

const QString InvalidArgs = QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs");
const QString UnknownObject = QStringLiteral("org.freedesktop.DBus.Error.UnknownObject");
const QString UnknownMethod = QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod");
const QString InvalidSignature = QStringLiteral("org.freedesktop.DBus.Error.InvalidSignature");
const QString PropertyReadOnly = QStringLiteral("org.freedesktop.DBus.Error.PropertyReadOnly");

bool isWritable(const QString &property)
{
    static const QStringList Writable = QStringLiteral("Alias Blocked Delay Discoverable DiscoverableTimeout Pairable "
                                                       "PairableTimeout Powered Trusted Volume")
                                            .split(QLatin1Char(' '));
    return Writable.contains(property);
}

QString signatureOf(const QVariant &value)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    return QString::fromLatin1(QDBusMetaType::typeToSignature(value.metaType()));
#else
    return QString::fromLatin1(QDBusMetaType::typeToSignature(value.userType()));
#endif
}

} // namespace

const QList<FakeBluez::Method> &FakeBluez::methods()
{
    static const auto name = [](const char *text) { return QLatin1String(text); };
    static const QList<Method> Table{
        {bluez::ObjectManagerInterface, name("GetManagedObjects"), name(""), &FakeBluez::getManagedObjects},
        {bluez::PropertiesInterface, name("Get"), name("ss"), &FakeBluez::get},
        {bluez::PropertiesInterface, name("Set"), name("ssv"), &FakeBluez::set},
        {bluez::AgentManagerInterface, name("RegisterAgent"), name("os"), &FakeBluez::registerAgent},
        {bluez::AgentManagerInterface, name("RequestDefaultAgent"), name("o"), &FakeBluez::requestDefaultAgent},
        {bluez::MediaInterface, name("RegisterEndpoint"), name("oa{sv}"), &FakeBluez::registerEndpoint},
        {bluez::MediaTransportInterface, name("Acquire"), name(""), &FakeBluez::acquire},
        {bluez::MediaTransportInterface, name("TryAcquire"), name(""), &FakeBluez::acquire},
        {bluez::DeviceInterface, name("Disconnect"), name(""), &FakeBluez::disconnectDevice},
    };
    return Table;
}

bool FakeBluez::handleMessage(const QDBusMessage &message, const QDBusConnection &)
{
    recordCall(message);
    if (message.interface() == QLatin1String("org.freedesktop.DBus.Introspectable"))
        return false;                                                      // QtDBus answers, with introspect()
    const Interceptor interceptor = interceptors_.value(message.member()); // a copy, because it may remove itself
    if (!interceptor || !interceptor(message))
        answer(message);
    return true;
}

void FakeBluez::answer(const QDBusMessage &call)
{
    const bool isRoot = call.path() == bluez::ObjectManagerPath;
    const auto object = tree_.constFind(QDBusObjectPath(call.path()));
    if (!isRoot && object == tree_.constEnd()) {
        sendError(call, UnknownObject, QStringLiteral("No object at ") + call.path());
        return;
    }
    for (const Method &method : methods()) {
        if (call.interface() != method.interface || call.member() != method.name || call.signature() != method.in)
            continue;
        const bool isServed = isRoot
            ? method.interface == bluez::ObjectManagerInterface
            : method.interface == bluez::PropertiesInterface || object->contains(method.interface);
        if (isServed) {
            (this->*method.answer)(call);
            return;
        }
    }
    sendError(call, UnknownMethod,
              QStringLiteral("Method \"%1\" with signature \"%2\" on interface \"%3\" doesn't exist")
                  .arg(call.member(), call.signature(), call.interface()));
}

void FakeBluez::sendError(const QDBusMessage &call, const QString &errorName, const QString &text)
{
    connection_.send(call.createErrorReply(errorName, text));
}

void FakeBluez::reply(const QDBusMessage &call, const QVariantList &arguments)
{
    connection_.send(call.createReply(arguments));
}

void FakeBluez::getManagedObjects(const QDBusMessage &call)
{
    reply(call, {QVariant::fromValue(tree_)});
}

void FakeBluez::get(const QDBusMessage &call)
{
    const QVariant value = property(call.path(), call.arguments().at(0).toString(), call.arguments().at(1).toString());
    if (value.isValid())
        reply(call, {QVariant::fromValue(QDBusVariant(value))});
    else
        sendError(call, InvalidArgs, QStringLiteral("No such property '%1'").arg(call.arguments().at(1).toString()));
}

void FakeBluez::set(const QDBusMessage &call)
{
    const QString interface = call.arguments().at(0).toString();
    const QString name = call.arguments().at(1).toString();
    const QVariant value = call.arguments().at(2).value<QDBusVariant>().variant();
    const QVariant old = property(call.path(), interface, name);
    if (!old.isValid()) {
        sendError(call, InvalidArgs, QStringLiteral("No such property '%1'").arg(name));
    } else if (!isWritable(name)) {
        sendError(call, PropertyReadOnly, QStringLiteral("Property '%1' is not writable").arg(name));
    } else if (signatureOf(value) != signatureOf(old)) {
        sendError(call, InvalidSignature, QStringLiteral("Invalid signature for '%1'").arg(name));
    } else if (name == QLatin1String("Discoverable")
               && !property(call.path(), interface, QStringLiteral("Powered")).toBool()
               && property(call.path(), interface, QStringLiteral("DiscoverableTimeout")).toUInt() > 0) {
        sendError(call, QStringLiteral("org.bluez.Error.Failed"), QStringLiteral("Not Powered"));
    } else {
        reply(call);
        if (value != old)
            setProperty(call.path(), interface, name, value);
    }
}

void FakeBluez::registerAgent(const QDBusMessage &call)
{
    if (agent_.service == call.service()) {
        sendError(call, QStringLiteral("org.bluez.Error.AlreadyExists"), QStringLiteral("Already Exists"));
        return;
    }
    agent_ = {call.service(), call.arguments().at(0).value<QDBusObjectPath>().path(), false};
    clients_->addWatchedService(agent_.service);
    reply(call);
    const QList<QDBusObjectPath> objects = tree_.keys();
    for (const QDBusObjectPath &object : objects) {
        if (property(object.path(), bluez::AdapterInterface, QStringLiteral("Pairable")) == QVariant(false))
            setProperty(object.path(), bluez::AdapterInterface, QStringLiteral("Pairable"), true);
    }
}

void FakeBluez::requestDefaultAgent(const QDBusMessage &call)
{
    if (agent_.service != call.service()) {
        sendError(call, QStringLiteral("org.bluez.Error.DoesNotExist"), QStringLiteral("Does Not Exist"));
        return;
    }
    agent_.isDefault = true;
    reply(call);
}

void FakeBluez::registerEndpoint(const QDBusMessage &call)
{
    const QVariantMap properties = qdbus_cast<QVariantMap>(call.arguments().at(1));
    const RegisteredEndpoint endpoint{call.service(),
                                      call.path(),
                                      call.arguments().at(0).value<QDBusObjectPath>().path(),
                                      properties.value(QStringLiteral("UUID")).toString(),
                                      properties.value(QStringLiteral("Codec")).value<uchar>(),
                                      properties.value(QStringLiteral("Capabilities")).toByteArray()};

    const bool exists = std::any_of(endpoints_.cbegin(), endpoints_.cend(), [&](const RegisteredEndpoint &other) {
        return other.service == endpoint.service && other.path == endpoint.path && other.adapter == endpoint.adapter;
    });
    if (exists) {
        sendError(call, QStringLiteral("org.bluez.Error.AlreadyExists"), QStringLiteral("Already Exists"));
    } else if (endpoint.uuid.isEmpty() || endpoint.capabilities.isEmpty()
               || signatureOf(properties.value(QStringLiteral("Codec"))) != QLatin1String("y")
               || signatureOf(properties.value(QStringLiteral("Capabilities"))) != QLatin1String("ay")) {
        sendError(call, QStringLiteral("org.bluez.Error.InvalidArguments"),
                  QStringLiteral("Invalid arguments in method call"));
    } else {
        endpoints_.append(endpoint);
        clients_->addWatchedService(endpoint.service);
        reply(call);
        updateUuids(endpoint.adapter);
    }
}

void FakeBluez::acquire(const QDBusMessage &call)
{
    const auto offered = streams_.find(call.path());
    if (offered == streams_.end()) {
        sendError(call, QStringLiteral("org.bluez.Error.NotAvailable"),
                  QStringLiteral("Operation currently not available"));
        return;
    }
    Stream &stream = offered->second;
    if (!stream.fd.isValid()) {
        sendError(call, QStringLiteral("org.bluez.Error.NotAuthorized"), QStringLiteral("Operation Not Authorized"));
        return;
    }
    reply(call,
          {QVariant::fromValue(QDBusUnixFileDescriptor(stream.fd.get())), QVariant::fromValue(stream.mtu),
           QVariant::fromValue(stream.mtu)});
    stream.fd.reset();
    setProperty(call.path(), bluez::MediaTransportInterface, QStringLiteral("State"), QStringLiteral("active"));
}

void FakeBluez::disconnectDevice(const QDBusMessage &call)
{
    if (!property(call.path(), bluez::DeviceInterface, QStringLiteral("Connected")).toBool()) {
        sendError(call, QStringLiteral("org.bluez.Error.NotConnected"), QStringLiteral("Not Connected"));
        return;
    }
    reply(call);
    Q_EMIT disconnectRequested(call.path());
}

QString FakeBluez::introspect(const QString &path) const
{
    // Return only the child nodes, which "busctl tree" needs. QtDBus adds the interfaces that it answers itself, and
    // BlueZ's clients know the others.
    const QString prefix = path.endsWith(QLatin1Char('/')) ? path : path + QLatin1Char('/');
    QStringList children;
    for (auto other = tree_.begin(); other != tree_.end(); ++other) {
        if (other.key().path().startsWith(prefix))
            children.append(other.key().path().mid(prefix.size()).section(QLatin1Char('/'), 0, 0));
    }
    children.removeDuplicates();
    QString xml;
    for (const QString &child : std::as_const(children))
        xml += QStringLiteral("  <node name=\"%1\"/>\n").arg(child);
    return xml;
}

} // namespace sim
