#include "bluez/adaptermanager.h"

#include "bluez/agent1.h"
#include "bus/bluezcall.h"
#include "bus/names.h"
#include "core/dbuscommandlistener.h"
#include "core/log.h"
#include "core/speakername.h"
#include "endpoint/endpoint.h"
#include "player/playerrequests.h"
#include "transport/transport.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QDBusVariant>

namespace {

bool isConnectedDevice(const QVariantMapMap &interfaces)
{
    const QVariant connected = interfaces.value(bus::DeviceInterface).value(bus::ConnectedProperty);
    return connected.userType() == QMetaType::Bool && connected.toBool();
}

} // namespace

AdapterManager::AdapterManager(bool aacDisabled, PlayerRequests &player, QObject *parent)
    : AbstractManager(parent), aacDisabled_(aacDisabled), player_(player)
{
    bus::registerObjectTreeTypes();
    subscribe();

    new Agent1(this);
    QDBusConnection::systemBus().registerObject(bus::AgentPath, this, QDBusConnection::ExportAdaptors);
    RegisterAgent(bus::AgentPath);

    new DBusCommandListener(this);
    DBusCommandListener::claimService(this);
    // Not before the name is ours: a second daemon, started by mistake, would take the socket of the first with it.
    Transport::InitSocketServer();
    FindAnAvailableAdapter();
}

AdapterManager::~AdapterManager() = default;

void AdapterManager::subscribe()
{
    const struct {
        QLatin1String path;
        QLatin1String interface;
        QLatin1String signal;
        QLatin1String signature; ///< without it a map of other types would be read as the slot's, beyond its end
        const char *slot;
    } subscriptions[] = {
        {bus::ObjectManagerPath, bus::ObjectManagerInterface, QLatin1String("InterfacesAdded"),
         QLatin1String("oa{sa{sv}}"), SLOT(InterfacesAdded(QDBusObjectPath, QVariantMapMap))},
        {bus::ObjectManagerPath, bus::ObjectManagerInterface, QLatin1String("InterfacesRemoved"), QLatin1String("oas"),
         SLOT(InterfacesRemoved(QDBusObjectPath, QStringList))},
        {bus::AnyPath, bus::PropertiesInterface, bus::PropertiesChanged, bus::PropertiesChangedSignature,
         SLOT(PropertiesChanged(QString, QVariantMap, QStringList))},
    };
    for (const auto &subscription : subscriptions) {
        if (!QDBusConnection::systemBus().connect(bus::BluezService, subscription.path, subscription.interface,
                                                  subscription.signal, subscription.signature, this, subscription.slot))
            qWarning("0Could not subscribe to %s", subscription.signal.data());
    }
    auto *watcher = new QDBusServiceWatcher(bus::BluezService, QDBusConnection::systemBus(),
                                            QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this, &AdapterManager::serviceOwnerChanged);
}

void AdapterManager::FindAnAvailableAdapter()
{
    qDebug("FindAnAvailableAdapter");
    const QDBusMessage reply = bus::callBluez(bus::ObjectManagerPath, bus::ObjectManagerInterface,
                                              QStringLiteral("GetManagedObjects"));
    if (reply.type() != QDBusMessage::ReplyMessage)
        return;
    if (reply.signature() != QLatin1String("a{oa{sa{sv}}}")) {
        logDebug() << "GetManagedObjects: unexpected types" << reply.signature();
        return;
    }
    const auto objects = qdbus_cast<DBusManagerStruct>(reply.arguments().constFirst());
    for (auto object = objects.begin(); object != objects.end(); ++object) {
        const QString path = object.key().path();
        logDebug() << path;
        for (auto interface = object->begin(); interface != object->end(); ++interface) {
            logDebug() << "\t" << interface.key();
            if (interface.key().endsWith(QLatin1String("Adapter1")) && !IsAdapterPresent()) {
                SetDefaultAdapter(path);
                TrackConnectedDevice(objects);
                return;
            }
            for (auto property = interface->begin(); property != interface->end(); ++property)
                logDebug() << "\t\t" << property.key() << "=" << property.value();
        }
    }
}

/// A phone that was there before us, reconnected while the board booted for instance, is not reported again.
void AdapterManager::TrackConnectedDevice(const DBusManagerStruct &objects)
{
    for (auto object = objects.begin(); object != objects.end(); ++object) {
        const QString path = object.key().path();
        if (path.startsWith(adapterPath_ + QLatin1Char('/')) && isConnectedDevice(*object)) {
            DeviceConnected(path);
            return;
        }
    }
}

void AdapterManager::SetDefaultAdapter(const QString &path)
{
    sbcEndpoint_.reset();
    aacEndpoint_.reset();
    adapterPath_.clear();

    if (!path.isEmpty()) {
        logDebug() << "0Set default adapter: " << path;
        adapterPath_ = path;
        ResetAlias();
        SetProperty(bus::AdapterInterface, path, QStringLiteral("Powered"), true);
        SetProperty(bus::AdapterInterface, path, QStringLiteral("DiscoverableTimeout"), 0U); // no limit
        SetProperty(bus::AdapterInterface, path, QStringLiteral("Discoverable"), true);
        RegisterAgent(bus::AgentPath);

        sbcCodec_ = std::make_unique<CodecSBC>();
        sbcEndpoint_ = std::make_unique<Endpoint>(path, *sbcCodec_, *this, player_);
        if (!aacDisabled_) {
            aacCodec_ = std::make_unique<CodecAAC>();
            aacEndpoint_ = std::make_unique<Endpoint>(path, *aacCodec_, *this, player_);
        }
    }
    sendBTPropertyChange();
}

void AdapterManager::RegisterAgent(const QString &agentPath)
{
    qDebug("RegisterAgent");
    const QVariant path = QVariant::fromValue(QDBusObjectPath(agentPath));
    bus::callBluez(bus::BluezRootPath, bus::AgentManagerInterface, QStringLiteral("RegisterAgent"),
                   {path, QStringLiteral("NoInputNoOutput")});
    bus::callBluez(bus::BluezRootPath, bus::AgentManagerInterface, QStringLiteral("RequestDefaultAgent"), {path});
}

bool AdapterManager::IsStreaming() const
{
    return activeTransport_ && activeTransport_->isActive();
}

void AdapterManager::ResetAlias()
{
    if (!IsAdapterPresent())
        return;
    const QString name = readSpeakerName();
    if (name.isEmpty())
        return;
    const QString alias = name + QLatin1String(SpeakerNameSuffix);
    logDebug() << alias;
    SetProperty(bus::AdapterInterface, adapterPath_, bus::AliasProperty, alias);
}

void AdapterManager::Disconnect()
{
    if (IsConnected())
        bus::callBluez(connectedDevicePath_, bus::DeviceInterface, QStringLiteral("Disconnect"));
}

void AdapterManager::SelectBluetooth()
{
    if (activeTransport_)
        activeTransport_->SelectBluetooth();
    else
        qDebug("0SelectBluetooth(): no transport");
}

void AdapterManager::setActiveTransport(Transport *transport)
{
    qDebug("AdapterManager::setActiveTransport");
    activeTransport_ = transport;
    if (transport)
        connect(transport, &Transport::transportActive, this, &AdapterManager::transportActive);
}

void AdapterManager::InterfacesAdded(const QDBusObjectPath &aPath, const QVariantMapMap &interfaces)
{
    logDebug() << "InterfacesAdded " << aPath.path();
    if (!IsAdapterPresent()) {
        for (auto interface = interfaces.begin(); interface != interfaces.end(); ++interface) {
            if (interface.key() == bus::AdapterInterface)
                SetDefaultAdapter(aPath.path());
            logDebug() << interface.key();
        }
    }
    // A phone that BlueZ has only just learnt of is announced as connected already; no other notice of it follows.
    if (isConnectedDevice(interfaces))
        DeviceConnected(aPath.path());
}

void AdapterManager::InterfacesRemoved(const QDBusObjectPath &aPath, const QStringList & /*aStringList*/)
{
    logDebug() << "InterfacesRemoved " << aPath.path();
    if (aPath.path() != adapterPath_)
        return;
    SetDefaultAdapter(QString());
    FindAnAvailableAdapter();
}

/// BlueZ that crashes says nothing of what it takes along, and the new one announces its adapters as if for the first
/// time: what was there counts as removed.
void AdapterManager::serviceOwnerChanged(const QString & /*service*/, const QString &oldOwner, const QString &newOwner)
{
    if (!oldOwner.isEmpty()) {
        if (IsConnected())
            DeviceDisconnected(connectedDevicePath_);
        if (IsAdapterPresent()) {
            logDebug() << "InterfacesRemoved " << adapterPath_;
            SetDefaultAdapter(QString());
        }
    }
    if (!newOwner.isEmpty() && !IsAdapterPresent())
        FindAnAvailableAdapter();
}

void AdapterManager::PropertiesChanged(const QString &interface, const QVariantMap &changed,
                                       const QStringList &invalidated)
{
    logDebug() << "AdapterManager::PropertiesChanged" << interface << changed << invalidated;
    if (interface != bus::DeviceInterface)
        return;
    const QVariant connected = changed.value(bus::ConnectedProperty);
    if (connected.userType() != QMetaType::Bool)
        return;
    if (connected.toBool())
        DeviceConnected(message().path());
    else
        DeviceDisconnected(message().path());
}

void AdapterManager::DeviceConnected(const QString &path)
{
    if (calledFromDBus())
        logDebug() << message();
    logDebug() << "0Device Connect:" << path;
    if (!IsConnected()) {
        connectedDevicePath_ = path;
        connectedDeviceName_ = GetProperty(bus::DeviceInterface, path, bus::AliasProperty).toString();
        sendBTPropertyChange();
    }
    LogActiveDevice();
}

void AdapterManager::DeviceDisconnected(const QString &path)
{
    if (calledFromDBus())
        logDebug() << message();
    logDebug() << "0Device Disconnect:" << path;
    if (path == connectedDevicePath_) {
        connectedDevicePath_.clear();
        connectedDeviceName_.clear();
        sendBTPropertyChange();
    }
    LogActiveDevice();
}

void AdapterManager::LogActiveDevice() const
{
    logDebug() << "0Active Device:" << connectedDevicePath_ << connectedDeviceName_;
}

void AdapterManager::transportActive(bool /*active*/)
{
    sendBTPropertyChange();
}

void AdapterManager::sendBTPropertyChange()
{
    const bool connected = IsAdapterPresent() && IsConnected();
    player_.sendBTPropertyChange(QStringLiteral("USB"), IsAdapterPresent(), connected, connected ? Name() : QString(),
                                 connected && IsStreaming());
}

void AdapterManager::SetProperty(const QString &interface, const QString &path, const QString &name,
                                 const QVariant &value)
{
    logDebug() << "SetProperty" << interface << path << name << value;
    const QDBusMessage reply = bus::callBluez(path, bus::PropertiesInterface, QStringLiteral("Set"),
                                              {interface, name, QVariant::fromValue(QDBusVariant(value))});
    logDebug() << reply.errorName() << reply.errorMessage();
}

QVariant AdapterManager::GetProperty(const QString &interface, const QString &path, const QString &name)
{
    logDebug() << "GetProperty" << interface << path << name;
    const QDBusMessage reply = bus::callBluez(path, bus::PropertiesInterface, QStringLiteral("Get"), {interface, name},
                                              bus::PhoneAnswerMs);
    logDebug() << reply.errorName() << reply.errorMessage();
    if (reply.type() != QDBusMessage::ReplyMessage)
        return {};
    if (reply.signature() != QLatin1String("v")) {
        logDebug() << "GetProperty: unexpected types" << reply.signature();
        return {};
    }
    return qvariant_cast<QDBusVariant>(reply.arguments().constFirst()).variant();
}
