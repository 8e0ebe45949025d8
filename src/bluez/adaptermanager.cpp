// SPDX-License-Identifier: MIT
#include "bluez/adaptermanager.h"

#include "bluez/adapter.h"
#include "bluez/agent1.h"
#include "bluez/call.h"
#include "bluez/names.h"
#include "bluez/transport.h"
#include "control/dbuscommandlistener.h"
#include "log/log.h"
#include "player/audioserver.h"
#include "player/playerrequests.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServiceWatcher>

namespace {

bool isConnectedDevice(const QVariantMapMap &interfaces)
{
    const QVariant connected = interfaces.value(bluez::DeviceInterface).value(bluez::ConnectedProperty);
    return connected.userType() == QMetaType::Bool && connected.toBool();
}

} // namespace

AdapterManager::AdapterManager(bool aacDisabled, PlayerRequests &player, QObject *parent)
    : AbstractManager(parent), aacDisabled_(aacDisabled), player_(player), device_([this] {
          sendBTPropertyChange();
          LogActiveDevice();
      })
{
    bluez::registerObjectTreeTypes();
    subscribe();

    new Agent1(this);
    QDBusConnection::systemBus().registerObject(bluez::AgentPath, this, QDBusConnection::ExportAdaptors);
    bluez::send(Agent1::registration());
    bluez::send(Agent1::defaultRequest());

    new DBusCommandListener(this);
    DBusCommandListener::claimService(this);
    // After claimService(), because a second daemon, started by mistake, would otherwise replace the first one's
    // socket.
    server_ = Transport::InitSocketServer();
    FindAnAvailableAdapter();
}

AdapterManager::~AdapterManager() = default;

void AdapterManager::subscribe()
{
    const struct {
        QLatin1String path;
        QLatin1String interface;
        QLatin1String signal;
        QLatin1String signature; ///< required, because otherwise the slot reads a map of other types beyond its end
        const char *slot;
    } subscriptions[] = {
        {bluez::ObjectManagerPath, bluez::ObjectManagerInterface, QLatin1String("InterfacesAdded"),
         QLatin1String("oa{sa{sv}}"), SLOT(InterfacesAdded(QDBusObjectPath, QVariantMapMap))},
        {bluez::ObjectManagerPath, bluez::ObjectManagerInterface, QLatin1String("InterfacesRemoved"),
         QLatin1String("oas"), SLOT(InterfacesRemoved(QDBusObjectPath, QStringList))},
        {bluez::AnyPath, bluez::PropertiesInterface, bluez::PropertiesChanged, bluez::PropertiesChangedSignature,
         SLOT(PropertiesChanged(QString, QVariantMap, QStringList))},
    };
    for (const auto &subscription : subscriptions) {
        if (!QDBusConnection::systemBus().connect(bluez::Service, subscription.path, subscription.interface,
                                                  subscription.signal, subscription.signature, this, subscription.slot))
            qWarning("0Could not subscribe to %s", subscription.signal.data());
    }
    auto *watcher = new QDBusServiceWatcher(bluez::Service, QDBusConnection::systemBus(),
                                            QDBusServiceWatcher::WatchForOwnerChange, this);
    connect(watcher, &QDBusServiceWatcher::serviceOwnerChanged, this, &AdapterManager::serviceOwnerChanged);
}

void AdapterManager::FindAnAvailableAdapter()
{
    qDebug("FindAnAvailableAdapter");
    search_.start({bluez::ObjectManagerPath,
                   bluez::ObjectManagerInterface,
                   QStringLiteral("GetManagedObjects"),
                   {},
                   bluez::Need::Vital},
                  [this](const QDBusMessage &reply) { adoptFrom(reply); });
}

void AdapterManager::adoptFrom(const QDBusMessage &managedObjects)
{
    if (managedObjects.type() != QDBusMessage::ReplyMessage)
        return;
    if (managedObjects.signature() != QLatin1String("a{oa{sa{sv}}}")) {
        logDebug("GetManagedObjects: unexpected types") << managedObjects.signature();
        return;
    }
    const auto objects = qdbus_cast<DBusManagerStruct>(managedObjects.arguments().constFirst());
    for (auto object = objects.begin(); object != objects.end(); ++object) {
        const QString path = object.key().path();
        logDebug() << path;
        for (auto interface = object->begin(); interface != object->end(); ++interface) {
            logDebug("\t") << interface.key();
            if (interface.key().endsWith(QLatin1String("Adapter1")) && !IsAdapterPresent()) {
                SetDefaultAdapter(path);
                TrackConnectedDevice(objects);
                return;
            }
            for (auto property = interface->begin(); property != interface->end(); ++property)
                logDebug("\t\t") << property.key() << "=" << property.value();
        }
    }
}

/// Tracks a phone that connected before this daemon started, such as one that reconnected while the board booted. BlueZ
/// does not report such a phone again.
void AdapterManager::TrackConnectedDevice(const DBusManagerStruct &objects)
{
    for (auto object = objects.begin(); object != objects.end(); ++object) {
        const QString path = object.key().path();
        if (path.startsWith(adapter_->path() + QLatin1Char('/')) && isConnectedDevice(*object)) {
            DeviceConnected(path);
            return;
        }
    }
}

void AdapterManager::SetDefaultAdapter(const QString &path)
{
    adapter_.reset();
    if (path.isEmpty()) {
        sendBTPropertyChange();
        return;
    }
    logDebug("0Set default adapter: ") << path;
    adapter_ = std::make_unique<Adapter>(path, aacDisabled_, endpointCounter_, *this,
                                         [this] { sendBTPropertyChange(); });
}

bool AdapterManager::IsStreaming() const
{
    return activeTransport_ && activeTransport_->isActive();
}

void AdapterManager::ResetAlias()
{
    if (adapter_)
        adapter_->ResetAlias();
}

void AdapterManager::SelectBluetooth()
{
    if (activeTransport_)
        activeTransport_->SelectBluetooth(player_, Name());
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
    logDebug("InterfacesAdded ") << aPath.path();
    if (!IsAdapterPresent()) {
        for (auto interface = interfaces.begin(); interface != interfaces.end(); ++interface) {
            if (interface.key() == bluez::AdapterInterface)
                SetDefaultAdapter(aPath.path());
            logDebug() << interface.key();
        }
    }
    // BlueZ adds a new phone's object with "Connected" already true and sends no PropertiesChanged for it.
    if (isConnectedDevice(interfaces))
        DeviceConnected(aPath.path());
}

void AdapterManager::InterfacesRemoved(const QDBusObjectPath &aPath, const QStringList &aStringList)
{
    const QString path = aPath.path();
    logDebug("InterfacesRemoved ") << path;
    // When BlueZ removes a phone or its adapter, it does not report the end of the phone's connection.
    const bool phoneRemoved = path == device_.path() && aStringList.contains(bluez::DeviceInterface);
    const bool adapterRemoved = device_.path().startsWith(path + QLatin1Char('/'))
        && aStringList.contains(bluez::AdapterInterface);
    if (phoneRemoved || adapterRemoved)
        DeviceDisconnected(device_.path());
    if (!adapter_ || path != adapter_->path())
        return;
    SetDefaultAdapter(QString());
    FindAnAvailableAdapter();
}

/// A crashed BlueZ does not report its phones and adapters as removed, and a restarted BlueZ announces its adapters as
/// new. Both therefore count as removed when the owner changes.
void AdapterManager::serviceOwnerChanged(const QString & /*service*/, const QString &oldOwner, const QString &newOwner)
{
    if (!oldOwner.isEmpty()) {
        search_.cancel();
        if (IsConnected())
            DeviceDisconnected(device_.path());
        if (IsAdapterPresent()) {
            logDebug("InterfacesRemoved ") << adapter_->path();
            SetDefaultAdapter(QString());
        }
    }
    if (!newOwner.isEmpty() && !IsAdapterPresent())
        FindAnAvailableAdapter();
}

void AdapterManager::PropertiesChanged(const QString &interface, const QVariantMap &changed,
                                       const QStringList &invalidated)
{
    logDebug("AdapterManager::PropertiesChanged") << interface << changed << invalidated;
    if (interface != bluez::DeviceInterface)
        return;
    const QVariant connected = changed.value(bluez::ConnectedProperty);
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
    logDebug("0Device Connect:") << path;
    if (IsConnected()) {
        LogActiveDevice();
        return;
    }
    device_.connected(path);
}

void AdapterManager::DeviceDisconnected(const QString &path)
{
    if (calledFromDBus())
        logDebug() << message();
    logDebug("0Device Disconnect:") << path;
    if (path == device_.path()) {
        device_.disconnected();
        sendBTPropertyChange();
    }
    LogActiveDevice();
}

void AdapterManager::LogActiveDevice() const
{
    logDebug("0Active Device:") << device_.path() << device_.name();
}

void AdapterManager::transportActive(bool /*active*/)
{
    sendBTPropertyChange();
}

void AdapterManager::sendBTPropertyChange()
{
    const bool connected = IsAdapterPresent() && device_.isNamed();
    player_.sendBTPropertyChange(QStringLiteral("USB"), IsAdapterPresent(), connected, connected ? Name() : QString(),
                                 connected && IsStreaming());
}
