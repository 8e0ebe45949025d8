#include "bluez/adaptermanager.h"

#include "bluez/agent1.h"
#include "bluez/call.h"
#include "bluez/endpoint.h"
#include "bluez/names.h"
#include "bluez/transport.h"
#include "board/speakername.h"
#include "codec/codecaac.h"
#include "codec/codecsbc.h"
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

bluez::Call registerAgent()
{
    qDebug("RegisterAgent");
    return {bluez::RootPath,
            bluez::AgentManagerInterface,
            QStringLiteral("RegisterAgent"),
            {QVariant::fromValue(QDBusObjectPath(bluez::AgentPath)), QStringLiteral("NoInputNoOutput")},
            bluez::Need::Vital};
}

bluez::Call requestDefaultAgent()
{
    return {bluez::RootPath,
            bluez::AgentManagerInterface,
            QStringLiteral("RequestDefaultAgent"),
            {QVariant::fromValue(QDBusObjectPath(bluez::AgentPath))},
            bluez::Need::Vital};
}

/// What phones are offered, in the order in which it is registered.
std::vector<std::unique_ptr<Codec>> makeCodecs(bool aacDisabled)
{
    std::vector<std::unique_ptr<Codec>> codecs;
    codecs.push_back(std::make_unique<CodecSBC>());
    if (!aacDisabled)
        codecs.push_back(std::make_unique<CodecAAC>());
    return codecs;
}

} // namespace

AdapterManager::AdapterManager(bool aacDisabled, PlayerRequests &player, QObject *parent)
    : AbstractManager(parent), aacDisabled_(aacDisabled), player_(player)
{
    bluez::registerObjectTreeTypes();
    subscribe();

    new Agent1(this);
    QDBusConnection::systemBus().registerObject(bluez::AgentPath, this, QDBusConnection::ExportAdaptors);
    bluez::send(registerAgent());
    bluez::send(requestDefaultAgent());

    new DBusCommandListener(this);
    DBusCommandListener::claimService(this);
    // Not before the name is ours: a second daemon, started by mistake, would take the socket of the first with it.
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
        QLatin1String signature; ///< without it a map of other types would be read as the slot's, beyond its end
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

void AdapterManager::adoptFrom(const QDBusMessage &reply)
{
    if (reply.type() != QDBusMessage::ReplyMessage)
        return;
    if (reply.signature() != QLatin1String("a{oa{sa{sv}}}")) {
        logDebug("GetManagedObjects: unexpected types") << reply.signature();
        return;
    }
    const auto objects = qdbus_cast<DBusManagerStruct>(reply.arguments().constFirst());
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
    setUp_.stop();
    renaming_.forget();
    renameAgain_ = false;
    endpoints_.clear();
    adapterPath_ = path;
    if (path.isEmpty()) {
        sendBTPropertyChange();
        return;
    }
    logDebug("0Set default adapter: ") << path;
    codecs_ = makeCodecs(aacDisabled_);
    setUp_.start(setUpSteps(), [this] { sendBTPropertyChange(); });
}

std::vector<bluez::CallSequence::Step> AdapterManager::setUpSteps()
{
    using bluez::Need;
    const auto set = [this](const char *property, const QVariant &value, Need need) {
        return [this, property, value, need] {
            return bluez::SetProperty(bluez::AdapterInterface, adapterPath_, QLatin1String(property), value, need);
        };
    };
    std::vector<bluez::CallSequence::Step> steps{
        [this] { return naming(); },
        set("Powered", true, Need::Vital),
        set("DiscoverableTimeout", 0U, Need::Optional), // no limit
        set("Discoverable", true, Need::Vital),
        registerAgent,
        requestDefaultAgent,
    };
    for (const std::unique_ptr<Codec> &codec : codecs_) {
        steps.emplace_back([this, &codec = *codec] {
            const QString path = QStringLiteral("/endpoint/%1").arg(endpointCounter_++);
            endpoints_.push_back(std::make_unique<Endpoint>(path, codec, *this));
            return endpoints_.back()->registration(adapterPath_);
        });
    }
    return steps;
}

bool AdapterManager::IsStreaming() const
{
    return activeTransport_ && activeTransport_->isActive();
}

/// The call that names the adapter after the speaker; none while the speaker has no name.
std::optional<bluez::Call> AdapterManager::naming() const
{
    const QString name = readSpeakerName();
    if (name.isEmpty())
        return {};
    const QString alias = name + QLatin1String(SpeakerNameSuffix);
    logDebug() << alias;
    return bluez::SetProperty(bluez::AdapterInterface, adapterPath_, bluez::AliasProperty, alias);
}

void AdapterManager::ResetAlias()
{
    if (!IsAdapterPresent())
        return;
    // A caller that asks faster than BlueZ answers does not pile up calls.
    renameAgain_ = renaming_.isUnderWay();
    if (renameAgain_)
        return;
    if (const std::optional<bluez::Call> call = naming()) {
        renaming_.start(*call, [this](const QDBusMessage &) {
            if (renameAgain_)
                ResetAlias();
        });
    }
}

void AdapterManager::Disconnect()
{
    if (IsConnected() && !disconnecting_.isUnderWay())
        disconnecting_.start({connectedDevicePath_,
                              bluez::DeviceInterface,
                              QStringLiteral("Disconnect"),
                              {},
                              bluez::Need::Optional,
                              bluez::PhoneAnswerMs},
                             {});
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
    // A phone that BlueZ has only just learnt of is announced as connected already; no other notice of it follows.
    if (isConnectedDevice(interfaces))
        DeviceConnected(aPath.path());
}

void AdapterManager::InterfacesRemoved(const QDBusObjectPath &aPath, const QStringList &aStringList)
{
    const QString path = aPath.path();
    logDebug("InterfacesRemoved ") << path;
    // BlueZ that removes a phone, or its adapter, does not say that the phone's connection ended.
    const bool phoneGone = path == connectedDevicePath_ && aStringList.contains(bluez::DeviceInterface);
    const bool radioGone = connectedDevicePath_.startsWith(path + QLatin1Char('/'))
        && aStringList.contains(bluez::AdapterInterface);
    if (phoneGone || radioGone)
        DeviceDisconnected(connectedDevicePath_);
    if (path != adapterPath_)
        return;
    SetDefaultAdapter(QString());
    FindAnAvailableAdapter();
}

/// BlueZ that crashes says nothing of what it takes along, and the new one announces its adapters as if for the first
/// time: what was there counts as removed.
void AdapterManager::serviceOwnerChanged(const QString & /*service*/, const QString &oldOwner, const QString &newOwner)
{
    if (!oldOwner.isEmpty()) {
        search_.forget();
        if (IsConnected())
            DeviceDisconnected(connectedDevicePath_);
        if (IsAdapterPresent()) {
            logDebug("InterfacesRemoved ") << adapterPath_;
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
    connectedDevicePath_ = path;
    askForName();
}

/// The player is told of the phone when its name has come or failed.
void AdapterManager::askForName()
{
    // BlueZ may still owe the answer for a phone that has left; calls do not pile up.
    nameAgain_ = alias_.isUnderWay();
    if (nameAgain_)
        return;
    alias_.start(bluez::GetProperty(bluez::DeviceInterface, connectedDevicePath_, bluez::AliasProperty),
                 [this](const QDBusMessage &reply) {
                     if (!IsConnected())
                         return;
                     if (nameAgain_) {
                         askForName();
                         return;
                     }
                     connectedDeviceName_ = bluez::propertyValue(reply).toString();
                     nameKnown_ = true;
                     sendBTPropertyChange();
                     LogActiveDevice();
                 });
}

void AdapterManager::DeviceDisconnected(const QString &path)
{
    if (calledFromDBus())
        logDebug() << message();
    logDebug("0Device Disconnect:") << path;
    if (path == connectedDevicePath_) {
        connectedDevicePath_.clear();
        connectedDeviceName_.clear();
        nameKnown_ = false;
        disconnecting_.forget();
        sendBTPropertyChange();
    }
    LogActiveDevice();
}

void AdapterManager::LogActiveDevice() const
{
    logDebug("0Active Device:") << connectedDevicePath_ << connectedDeviceName_;
}

void AdapterManager::transportActive(bool /*active*/)
{
    sendBTPropertyChange();
}

void AdapterManager::sendBTPropertyChange()
{
    const bool connected = IsAdapterPresent() && nameKnown_;
    player_.sendBTPropertyChange(QStringLiteral("USB"), IsAdapterPresent(), connected, connected ? Name() : QString(),
                                 connected && IsStreaming());
}
