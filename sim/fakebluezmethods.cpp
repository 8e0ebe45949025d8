// The answering half of FakeBluez: the table of its methods, what each does, and the introspection made from the table.

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
    QLatin1String in;  ///< D-Bus signature, of single complete types without structures
    QLatin1String out; ///< the same
    void (FakeBluez::*answer)(const QDBusMessage &call);
};

namespace {

const QString InvalidArgs = QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs");
const QString UnknownObject = QStringLiteral("org.freedesktop.DBus.Error.UnknownObject");
const QString UnknownMethod = QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod");
const QString InvalidSignature = QStringLiteral("org.freedesktop.DBus.Error.InvalidSignature");
const QString PropertyReadOnly = QStringLiteral("org.freedesktop.DBus.Error.PropertyReadOnly");

bool isWritable(const QString &interface, const QString &property)
{
    static const QHash<QString, QStringList> Writable{
        {bluez::AdapterInterface,
         {QStringLiteral("Alias"), QStringLiteral("Discoverable"), QStringLiteral("DiscoverableTimeout"),
          QStringLiteral("Pairable"), QStringLiteral("PairableTimeout"), QStringLiteral("Powered")}},
        {bluez::DeviceInterface, {QStringLiteral("Alias"), QStringLiteral("Blocked"), QStringLiteral("Trusted")}},
        {bluez::MediaTransportInterface, {QStringLiteral("Delay"), QStringLiteral("Volume")}},
    };
    return Writable.value(interface).contains(property);
}

QString signatureOf(const QVariant &value)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    return QString::fromLatin1(QDBusMetaType::typeToSignature(value.metaType()));
#else
    return QString::fromLatin1(QDBusMetaType::typeToSignature(value.userType()));
#endif
}

/// The complete types of a signature: "oa{sv}" is "o" and "a{sv}".
QStringList typesOf(const QString &signature)
{
    QStringList types;
    int depth = 0;
    bool complete = true;
    for (const QChar c : signature) {
        if (complete)
            types.append(QString());
        types.last().append(c);
        if (c == QLatin1Char('{'))
            ++depth;
        else if (c == QLatin1Char('}'))
            --depth;
        complete = depth == 0 && c != QLatin1Char('a');
    }
    return types;
}

QString argumentsXml(const QString &signature, const char *direction)
{
    QString xml;
    const QStringList types = typesOf(signature);
    for (const QString &type : types)
        xml += QStringLiteral("      <arg type=\"%1\" direction=\"%2\"/>\n").arg(type, QLatin1String(direction));
    return xml;
}

} // namespace

const QList<FakeBluez::Method> &FakeBluez::methods()
{
    static const auto name = [](const char *text) { return QLatin1String(text); };
    static const QList<Method> Table{
        {bluez::ObjectManagerInterface, name("GetManagedObjects"), name(""), name("a{oa{sa{sv}}}"),
         &FakeBluez::getManagedObjects},
        {bluez::PropertiesInterface, name("Get"), name("ss"), name("v"), &FakeBluez::get},
        {bluez::PropertiesInterface, name("GetAll"), name("s"), name("a{sv}"), &FakeBluez::getAll},
        {bluez::PropertiesInterface, name("Set"), name("ssv"), name(""), &FakeBluez::set},
        {bluez::AgentManagerInterface, name("RegisterAgent"), name("os"), name(""), &FakeBluez::registerAgent},
        {bluez::AgentManagerInterface, name("UnregisterAgent"), name("o"), name(""), &FakeBluez::unregisterAgent},
        {bluez::AgentManagerInterface, name("RequestDefaultAgent"), name("o"), name(""),
         &FakeBluez::requestDefaultAgent},
        {bluez::MediaInterface, name("RegisterEndpoint"), name("oa{sv}"), name(""), &FakeBluez::registerEndpoint},
        {bluez::MediaInterface, name("UnregisterEndpoint"), name("o"), name(""), &FakeBluez::unregisterEndpoint},
        {bluez::MediaTransportInterface, name("Acquire"), name(""), name("hqq"), &FakeBluez::acquire},
        {bluez::MediaTransportInterface, name("TryAcquire"), name(""), name("hqq"), &FakeBluez::acquire},
        {bluez::MediaTransportInterface, name("Release"), name(""), name(""), &FakeBluez::release},
        {bluez::DeviceInterface, name("Connect"), name(""), name(""), &FakeBluez::connectDevice},
        {bluez::DeviceInterface, name("Disconnect"), name(""), name(""), &FakeBluez::disconnectDevice},
    };
    return Table;
}

bool FakeBluez::handleMessage(const QDBusMessage &message, const QDBusConnection &)
{
    remember(message);
    if (message.interface() == QLatin1String("org.freedesktop.DBus.Introspectable"))
        return false;                                                      // the library answers, with introspect()
    const Interceptor interceptor = interceptors_.value(message.member()); // a copy: it may take itself off
    if (!interceptor || !interceptor(message))
        answer(message);
    return true;
}

void FakeBluez::answer(const QDBusMessage &call)
{
    const bool isRoot = call.path() == bluez::ObjectManagerPath;
    const auto object = tree_.constFind(QDBusObjectPath(call.path()));
    if (!isRoot && object == tree_.constEnd()) {
        refuseCall(call, UnknownObject, QStringLiteral("No object at ") + call.path());
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
    refuseCall(call, UnknownMethod,
               QStringLiteral("Method \"%1\" with signature \"%2\" on interface \"%3\" doesn't exist")
                   .arg(call.member(), call.signature(), call.interface()));
}

void FakeBluez::refuseCall(const QDBusMessage &call, const QString &errorName, const QString &text)
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
        refuseCall(call, InvalidArgs, QStringLiteral("No such property '%1'").arg(call.arguments().at(1).toString()));
}

void FakeBluez::getAll(const QDBusMessage &call)
{
    const QString interface = call.arguments().at(0).toString();
    const QVariantMapMap object = tree_.value(QDBusObjectPath(call.path()));
    if (object.contains(interface))
        reply(call, {object.value(interface)});
    else
        refuseCall(call, InvalidArgs, QStringLiteral("No such interface '%1'").arg(interface));
}

void FakeBluez::set(const QDBusMessage &call)
{
    const QString interface = call.arguments().at(0).toString();
    const QString name = call.arguments().at(1).toString();
    const QVariant value = call.arguments().at(2).value<QDBusVariant>().variant();
    const QVariant old = property(call.path(), interface, name);
    if (!old.isValid()) {
        refuseCall(call, InvalidArgs, QStringLiteral("No such property '%1'").arg(name));
    } else if (!isWritable(interface, name)) {
        refuseCall(call, PropertyReadOnly, QStringLiteral("Property '%1' is not writable").arg(name));
    } else if (signatureOf(value) != signatureOf(old)) {
        refuseCall(call, InvalidSignature, QStringLiteral("Invalid signature for '%1'").arg(name));
    } else if (name == QLatin1String("Discoverable")
               && !property(call.path(), interface, QStringLiteral("Powered")).toBool()
               && property(call.path(), interface, QStringLiteral("DiscoverableTimeout")).toUInt() > 0) {
        refuseCall(call, QStringLiteral("org.bluez.Error.Failed"), QStringLiteral("Not Powered"));
    } else {
        reply(call);
        if (value != old)
            setProperty(call.path(), interface, name, value);
    }
}

void FakeBluez::registerAgent(const QDBusMessage &call)
{
    if (agentService_ == call.service()) {
        refuseCall(call, QStringLiteral("org.bluez.Error.AlreadyExists"), QStringLiteral("Already Exists"));
        return;
    }
    agentService_ = call.service();
    agentPath_ = call.arguments().at(0).value<QDBusObjectPath>().path();
    defaultAgent_ = false;
    clients_->addWatchedService(agentService_);
    reply(call);
    const QList<QDBusObjectPath> objects = tree_.keys();
    for (const QDBusObjectPath &object : objects) {
        if (property(object.path(), bluez::AdapterInterface, QStringLiteral("Pairable")) == QVariant(false))
            setProperty(object.path(), bluez::AdapterInterface, QStringLiteral("Pairable"), true);
    }
}

void FakeBluez::unregisterAgent(const QDBusMessage &call)
{
    if (agentService_ != call.service()) {
        refuseCall(call, QStringLiteral("org.bluez.Error.DoesNotExist"), QStringLiteral("Does Not Exist"));
        return;
    }
    agentService_.clear();
    agentPath_.clear();
    defaultAgent_ = false;
    reply(call);
}

void FakeBluez::requestDefaultAgent(const QDBusMessage &call)
{
    if (agentService_ != call.service()) {
        refuseCall(call, QStringLiteral("org.bluez.Error.DoesNotExist"), QStringLiteral("Does Not Exist"));
        return;
    }
    defaultAgent_ = true;
    reply(call);
}

void FakeBluez::registerEndpoint(const QDBusMessage &call)
{
    const QVariantMap properties = qdbus_cast<QVariantMap>(call.arguments().at(1));
    RegisteredEndpoint endpoint;
    endpoint.service = call.service();
    endpoint.adapter = call.path();
    endpoint.path = call.arguments().at(0).value<QDBusObjectPath>().path();
    endpoint.uuid = properties.value(QStringLiteral("UUID")).toString();
    endpoint.codec = properties.value(QStringLiteral("Codec")).value<uchar>();
    endpoint.capabilities = properties.value(QStringLiteral("Capabilities")).toByteArray();

    const bool exists = std::any_of(endpoints_.cbegin(), endpoints_.cend(), [&](const RegisteredEndpoint &other) {
        return other.service == endpoint.service && other.path == endpoint.path && other.adapter == endpoint.adapter;
    });
    if (exists) {
        refuseCall(call, QStringLiteral("org.bluez.Error.AlreadyExists"), QStringLiteral("Already Exists"));
    } else if (endpoint.uuid.isEmpty() || endpoint.capabilities.isEmpty()
               || signatureOf(properties.value(QStringLiteral("Codec"))) != QLatin1String("y")
               || signatureOf(properties.value(QStringLiteral("Capabilities"))) != QLatin1String("ay")) {
        refuseCall(call, QStringLiteral("org.bluez.Error.InvalidArguments"),
                   QStringLiteral("Invalid arguments in method call"));
    } else {
        endpoints_.append(endpoint);
        clients_->addWatchedService(endpoint.service);
        reply(call);
    }
}

void FakeBluez::unregisterEndpoint(const QDBusMessage &call)
{
    const QString path = call.arguments().at(0).value<QDBusObjectPath>().path();
    const auto found = std::find_if(endpoints_.begin(), endpoints_.end(), [&](const RegisteredEndpoint &endpoint) {
        return endpoint.service == call.service() && endpoint.path == path && endpoint.adapter == call.path();
    });
    if (found == endpoints_.end()) {
        refuseCall(call, QStringLiteral("org.bluez.Error.DoesNotExist"), QStringLiteral("Does Not Exist"));
        return;
    }
    endpoints_.erase(found);
    reply(call);
}

void FakeBluez::acquire(const QDBusMessage &call)
{
    const auto offered = streams_.find(call.path());
    if (offered == streams_.end()) {
        refuseCall(call, QStringLiteral("org.bluez.Error.NotAvailable"),
                   QStringLiteral("Operation currently not available"));
        return;
    }
    Stream &stream = offered->second;
    if (!stream.fd.isValid()) {
        refuseCall(call, QStringLiteral("org.bluez.Error.NotAuthorized"), QStringLiteral("Operation Not Authorized"));
        return;
    }
    reply(call,
          {QVariant::fromValue(QDBusUnixFileDescriptor(stream.fd.get())), QVariant::fromValue(stream.mtu),
           QVariant::fromValue(stream.mtu)});
    stream.fd.reset();
    setProperty(call.path(), bluez::MediaTransportInterface, QStringLiteral("State"), QStringLiteral("active"));
}

void FakeBluez::release(const QDBusMessage &call)
{
    const auto offered = streams_.find(call.path());
    if (offered == streams_.end() || offered->second.fd.isValid()) {
        refuseCall(call, QStringLiteral("org.bluez.Error.NotAuthorized"), QStringLiteral("Operation Not Authorized"));
        return;
    }
    streams_.erase(offered);
    reply(call);
    setProperty(call.path(), bluez::MediaTransportInterface, QStringLiteral("State"), QStringLiteral("idle"));
}

void FakeBluez::connectDevice(const QDBusMessage &call)
{
    // No phone of ours lets itself be connected to; this is what BlueZ says of one that is out of reach.
    refuseCall(call, QStringLiteral("org.bluez.Error.Failed"), QStringLiteral("br-connection-page-timeout"));
}

void FakeBluez::disconnectDevice(const QDBusMessage &call)
{
    if (!property(call.path(), bluez::DeviceInterface, QStringLiteral("Connected")).toBool()) {
        refuseCall(call, QStringLiteral("org.bluez.Error.NotConnected"), QStringLiteral("Not Connected"));
        return;
    }
    reply(call);
    Q_EMIT disconnectRequested(call.path());
}

QString FakeBluez::introspect(const QString &path) const
{
    QString xml; // of what Qt does not describe: it adds Properties, Introspectable and Peer itself
    const QVariantMapMap object = tree_.value(QDBusObjectPath(path));
    QStringList interfaces = object.keys();
    if (path == bluez::ObjectManagerPath)
        interfaces.append(bluez::ObjectManagerInterface);
    for (const QString &interface : std::as_const(interfaces)) {
        xml += QStringLiteral("  <interface name=\"%1\">\n").arg(interface);
        for (const Method &method : methods()) {
            if (method.interface == interface)
                xml += QStringLiteral("    <method name=\"%1\">\n%2%3    </method>\n")
                           .arg(method.name, argumentsXml(method.in, "in"), argumentsXml(method.out, "out"));
        }
        const QVariantMap properties = object.value(interface);
        for (auto property = properties.begin(); property != properties.end(); ++property) {
            const char *access = isWritable(interface, property.key()) ? "readwrite" : "read";
            xml += QStringLiteral("    <property name=\"%1\" type=\"%2\" access=\"%3\"/>\n")
                       .arg(property.key(), signatureOf(property.value()), QLatin1String(access));
        }
        xml += QStringLiteral("  </interface>\n");
    }

    const QString prefix = path.endsWith(QLatin1Char('/')) ? path : path + QLatin1Char('/');
    QStringList children;
    for (auto other = tree_.begin(); other != tree_.end(); ++other) {
        if (other.key().path().startsWith(prefix))
            children.append(other.key().path().mid(prefix.size()).section(QLatin1Char('/'), 0, 0));
    }
    children.removeDuplicates();
    for (const QString &child : std::as_const(children))
        xml += QStringLiteral("  <node name=\"%1\"/>\n").arg(child);
    return xml;
}

} // namespace sim
