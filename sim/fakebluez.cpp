// SPDX-License-Identifier: MIT
#include "sim/fakebluez.h"

#include "bluez/names.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QDBusVariant>

#include <algorithm>
#include <fcntl.h>

namespace sim {

namespace {

const QString AgentInterface = QStringLiteral("org.bluez.Agent1");
const QString MediaEndpointInterface = QStringLiteral("org.bluez.MediaEndpoint1");
const QString Uuids = QStringLiteral("UUIDs");
const QString OwnUuid = QStringLiteral("00001200-0000-1000-8000-00805f9b34fb"); // PnP Information, of bluetoothd itself

QVariant unwrapped(const QVariant &value)
{
    if (value.userType() == qMetaTypeId<QDBusVariant>())
        return unwrapped(value.value<QDBusVariant>().variant());
    if (value.userType() == qMetaTypeId<QDBusArgument>()) {
        const auto argument = value.value<QDBusArgument>();
        if (argument.currentType() != QDBusArgument::MapType)
            return value;
        QVariantMap map = qdbus_cast<QVariantMap>(argument);
        for (QVariant &entry : map)
            entry = unwrapped(entry);
        return map;
    }
    return value;
}

QString textOf(const QVariant &value)
{
    switch (value.userType()) {
    case QMetaType::QString:
        return QLatin1Char('"') + value.toString() + QLatin1Char('"');
    case QMetaType::UChar: // print as a number, because QVariant would return it as a character
        return QString::number(value.value<uchar>());
    case QMetaType::QByteArray:
        return QString::fromLatin1(value.toByteArray().toHex(' ').toUpper());
    case QMetaType::QStringList:
        return QLatin1Char('[') + value.toStringList().join(QStringLiteral(", ")) + QLatin1Char(']');
    case QMetaType::QVariantMap: {
        QStringList entries;
        const QVariantMap map = value.toMap();
        for (auto entry = map.begin(); entry != map.end(); ++entry)
            entries.append(entry.key() + QStringLiteral(": ") + textOf(entry.value()));
        return QLatin1Char('{') + entries.join(QStringLiteral(", ")) + QLatin1Char('}');
    }
    default:
        return value.toString();
    }
}

} // namespace

QString BluezCall::text() const
{
    QStringList words{member, path};
    for (const QVariant &argument : arguments)
        words.append(textOf(argument));
    return words.join(QLatin1Char(' '));
}

FakeBluez::FakeBluez(const QString &address) : address_(address), connection_(QString())
{
    bluez::registerObjectTreeTypes();
    if (!QMetaType::hasRegisteredConverterFunction<QDBusObjectPath, QString>())
        QMetaType::registerConverter(&QDBusObjectPath::path);
    clock_.start();
    acquireName();
    addObject(bluez::RootPath, {{bluez::AgentManagerInterface, {}}}, Announce::No);
}

FakeBluez::~FakeBluez()
{
    crash();
}

void FakeBluez::acquireName()
{
    connection_ = connectToBus(address_);
    connection_.registerVirtualObject(bluez::ObjectManagerPath, this, QDBusConnection::SubPath);
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply = connection_.interface()->registerService(
        bluez::Service, QDBusConnectionInterface::ReplaceExistingService, QDBusConnectionInterface::AllowReplacement);
    if (reply.value() != QDBusConnectionInterface::ServiceRegistered)
        qFatal("org.bluez on %s: %s", qPrintable(address_), qPrintable(connection_.lastError().message()));
    clients_ = std::make_unique<QDBusServiceWatcher>();
    clients_->setConnection(connection_);
    clients_->setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
    connect(clients_.get(), &QDBusServiceWatcher::serviceUnregistered, this, &FakeBluez::removeClient);
}

void FakeBluez::storePhones()
{
    for (auto object = tree_.begin(); object != tree_.end(); ++object) {
        if (!object->contains(bluez::DeviceInterface))
            continue;
        QVariantMap &phone = stored_[object.key().path()];
        phone = object->value(bluez::DeviceInterface);
        phone.insert(bluez::ConnectedProperty, false);
    }
}

void FakeBluez::clearState()
{
    storePhones();
    clients_.reset();
    endpoints_.clear();
    streams_.clear();
    agent_ = {};
    tree_.clear();
}

void FakeBluez::crash()
{
    clearState();
    const QString name = connection_.name();
    connection_ = QDBusConnection(QString()); // leaves only the library's reference, which the next line releases
    QDBusConnection::disconnectFromBus(name);
}

void FakeBluez::restart()
{
    acquireName();
    addObject(bluez::RootPath, {{bluez::AgentManagerInterface, {}}});
}

void FakeBluez::replace()
{
    clearState();
    const QString oldName = connection_.name();
    restart();
    QDBusConnection::disconnectFromBus(oldName);
}

void FakeBluez::removeClient(const QString &service)
{
    clients_->removeWatchedService(service);
    removeEndpoints([&](const RegisteredEndpoint &endpoint) { return endpoint.service == service; });
    if (agent_.service == service)
        agent_ = {};
    const QList<QDBusObjectPath> objects = tree_.keys();
    for (const QDBusObjectPath &object : objects)
        updateUuids(object.path());
}

void FakeBluez::removeEndpoints(const std::function<bool(const RegisteredEndpoint &)> &which)
{
    endpoints_.erase(std::remove_if(endpoints_.begin(), endpoints_.end(), which), endpoints_.end());
}

void FakeBluez::updateUuids(const QString &adapter)
{
    const QVariant before = property(adapter, bluez::AdapterInterface, Uuids);
    QStringList uuids{OwnUuid};
    for (const RegisteredEndpoint &endpoint : std::as_const(endpoints_)) {
        if (endpoint.adapter == adapter)
            uuids.append(endpoint.uuid.toLower());
    }
    uuids.removeDuplicates();
    if (before.isValid() && before != uuids)
        setProperty(adapter, bluez::AdapterInterface, Uuids, uuids);
}

// --- The object tree.

void FakeBluez::addObject(const QString &path, const QVariantMapMap &interfaces, Announce announce)
{
    QVariantMapMap &object = tree_[QDBusObjectPath(path)];
    for (auto interface = interfaces.begin(); interface != interfaces.end(); ++interface)
        object.insert(interface.key(), interface.value());
    if (announce == Announce::No)
        return;
    QDBusMessage signal = QDBusMessage::createSignal(bluez::ObjectManagerPath, bluez::ObjectManagerInterface,
                                                     QStringLiteral("InterfacesAdded"));
    signal << QVariant::fromValue(QDBusObjectPath(path)) << QVariant::fromValue(interfaces);
    connection_.send(signal);
}

void FakeBluez::removeObject(const QString &path, const QStringList &interfaces, Announce announce)
{
    const auto object = tree_.find(QDBusObjectPath(path));
    if (object == tree_.end())
        return;
    const QStringList removed = interfaces.isEmpty() ? QStringList(object->keys()) : interfaces;
    for (const QString &interface : removed)
        object->remove(interface);
    if (object->isEmpty()) {
        tree_.erase(object);
        withdrawStream(path);
    }
    if (announce == Announce::No)
        return;
    QDBusMessage signal = QDBusMessage::createSignal(bluez::ObjectManagerPath, bluez::ObjectManagerInterface,
                                                     QStringLiteral("InterfacesRemoved"));
    signal << QVariant::fromValue(QDBusObjectPath(path)) << removed;
    connection_.send(signal);
}

void FakeBluez::addAdapter(const QString &path, Announce announce)
{
    constexpr uint LoudspeakerClass = 0x240414; // rendering, audio; audio/video, loudspeaker
    constexpr uint DiscoverableSeconds = 180;
    const QVariantMap adapter{
        {QStringLiteral("Address"), QStringLiteral("00:AA:01:00:00:42")},
        {QStringLiteral("AddressType"), QStringLiteral("public")},
        {QStringLiteral("Name"), QStringLiteral("BlueZ 5.66")},
        {QStringLiteral("Alias"), QStringLiteral("BlueZ 5.66")},
        {QStringLiteral("Class"), LoudspeakerClass},
        {QStringLiteral("Powered"), false},
        {QStringLiteral("Discoverable"), false},
        {QStringLiteral("DiscoverableTimeout"), DiscoverableSeconds},
        {QStringLiteral("Pairable"), !agent_.path.isEmpty()},
        {QStringLiteral("PairableTimeout"), 0U},
        {QStringLiteral("Discovering"), false},
        {Uuids, QStringList{OwnUuid}},
        {QStringLiteral("Modalias"), QStringLiteral("usb:v1D6Bp0246d0542")},
    };
    addObject(path, {{bluez::AdapterInterface, adapter}, {bluez::MediaInterface, {}}}, announce);
    for (const auto &[phone, properties] : stored_) {
        if (phone.startsWith(path + QLatin1Char('/')))
            addObject(phone, {{bluez::DeviceInterface, properties}}, announce);
    }
}

void FakeBluez::removeAdapter(const QString &path)
{
    removeEndpoints([&](const RegisteredEndpoint &endpoint) {
        if (endpoint.adapter == path)
            connection_.send(QDBusMessage::createMethodCall(endpoint.service, endpoint.path, MediaEndpointInterface,
                                                            QStringLiteral("Release")));
        return endpoint.adapter == path;
    });
    storePhones();
    const QList<QDBusObjectPath> objects = tree_.keys();
    for (auto object = objects.rbegin(); object != objects.rend(); ++object) { // children sort after their parent
        if (object->path() == path || object->path().startsWith(path + QLatin1Char('/')))
            removeObject(object->path());
    }
}

QVariant FakeBluez::property(const QString &path, const QString &interface, const QString &name) const
{
    return tree_.value(QDBusObjectPath(path)).value(interface).value(name);
}

void FakeBluez::setProperty(const QString &path, const QString &interface, const QString &name, const QVariant &value)
{
    tree_[QDBusObjectPath(path)][interface][name] = value;
    emitPropertiesChanged(path, interface, {{name, value}});
}

void FakeBluez::emitPropertiesChanged(const QString &path, const QString &interface, const QVariantMap &changed)
{
    QDBusMessage signal = QDBusMessage::createSignal(path, bluez::PropertiesInterface,
                                                     QStringLiteral("PropertiesChanged"));
    signal << interface << changed << QStringList();
    connection_.send(signal);
}

// --- Misbehaviour.

void FakeBluez::intercept(const QString &member, const Interceptor &interceptor)
{
    interceptors_.insert(member, interceptor);
}

void FakeBluez::refuse(const QString &member, const QString &errorName, const QString &text)
{
    intercept(member, [=](const QDBusMessage &call) {
        sendError(call, errorName, text);
        return true;
    });
}

void FakeBluez::neverAnswer(const QString &member)
{
    intercept(member, [](const QDBusMessage &) { return true; });
}

// --- What the daemon did, and calls to it.

int FakeBluez::countCalls(const QString &member) const
{
    return static_cast<int>(
        std::count_if(calls_.begin(), calls_.end(), [&](const BluezCall &call) { return call.member == member; }));
}

void FakeBluez::recordCall(const QDBusMessage &message)
{
    BluezCall call{message.path(), message.interface(), message.member(), {}, clock_.elapsed()};
    const QVariantList arguments = message.arguments();
    for (const QVariant &argument : arguments)
        call.arguments.append(unwrapped(argument));
    calls_.append(call);
    Q_EMIT called(call);
}

void FakeBluez::offerStream(const QString &path, int fd, quint16 mtu)
{
    streams_.insert_or_assign(path, Stream{FileDescriptor(::fcntl(fd, F_DUPFD_CLOEXEC, 0)), mtu});
}

QDBusMessage FakeBluez::callAgent(const QString &member, const QVariantList &arguments)
{
    if (agent_.path.isEmpty())
        return QDBusMessage::createError(QStringLiteral("sim.NoAgent"), QStringLiteral("No agent is registered"));
    QDBusMessage message = QDBusMessage::createMethodCall(agent_.service, agent_.path, AgentInterface, member);
    message.setArguments(arguments);
    return call(message);
}

const RegisteredEndpoint *FakeBluez::endpointFor(uchar codec) const
{
    const auto endpoint = std::find_if(endpoints_.cbegin(), endpoints_.cend(),
                                       [&](const RegisteredEndpoint &candidate) { return candidate.codec == codec; });
    return endpoint == endpoints_.cend() ? nullptr : &*endpoint;
}

QDBusMessage FakeBluez::callEndpoint(uchar codec, const QString &member, const QVariantList &arguments)
{
    const RegisteredEndpoint *endpoint = endpointFor(codec);
    if (!endpoint)
        return QDBusMessage::createError(QStringLiteral("sim.NoEndpoint"),
                                         QStringLiteral("No endpoint is registered for codec %1").arg(codec));
    QDBusMessage message = QDBusMessage::createMethodCall(endpoint->service, endpoint->path, MediaEndpointInterface,
                                                          member);
    message.setArguments(arguments);
    return call(message);
}

} // namespace sim
