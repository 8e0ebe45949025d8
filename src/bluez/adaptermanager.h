#pragma once

#include "bluez/callsequence.h"
#include "bluez/objecttree.h"
#include "bluez/pendingcall.h"
#include "control/abstractmanager.h"

#include <QDBusContext>
#include <QDBusObjectPath>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <optional>
#include <vector>

class AudioServer;
class Codec;
class Endpoint;
class PlayerRequests;
class Transport;

/// The manager of a speaker whose radio is a BlueZ adapter.
///
/// It adopts the first adapter and makes it a speaker: named, powered, discoverable without time limit, with the
/// pairing agent and an endpoint for each codec. It tracks the one phone that connected first and the current
/// transport, and tells the player of every change. Nothing here waits for BlueZ.
class AdapterManager : public AbstractManager, public QDBusContext {
    Q_OBJECT
public:
    /// Takes the service name (a fatal message if that is refused), makes the local audio socket and adopts an adapter
    /// if there is one. `player` outlives the manager. `aacDisabled`: phones are offered SBC only.
    AdapterManager(bool aacDisabled, PlayerRequests &player, QObject *parent = nullptr);
    ~AdapterManager() override;

    bool IsAdapterPresent() const override { return !adapterPath_.isEmpty(); }
    bool IsConnected() const override { return !connectedDevicePath_.isEmpty(); }
    QString ConnectedDevicePath() const override { return connectedDevicePath_; }
    QString Name() const override { return connectedDeviceName_; }
    bool IsStreaming() const override;
    /// Names the adapter after the first line of "/var/data/player_name"; without a name it keeps its own.
    void ResetAlias() override;
    void Disconnect() override;
    void SelectBluetooth() override;

    /// Says which media transport is current; null: none. It stays its endpoint's, which passes null before it is gone.
    void setActiveTransport(Transport *transport);
    /// The local audio socket, where the transports find their clients.
    AudioServer &audioServer() { return *server_; }

private Q_SLOTS:
    void InterfacesAdded(const QDBusObjectPath &aPath, const QVariantMapMap &interfaces);
    void InterfacesRemoved(const QDBusObjectPath &aPath, const QStringList &aStringList);
    void PropertiesChanged(const QString &interface, const QVariantMap &changed, const QStringList &invalidated);
    void transportActive(bool active);
    void serviceOwnerChanged(const QString &service, const QString &oldOwner, const QString &newOwner);

private:
    void subscribe();
    void FindAnAvailableAdapter();
    void adoptFrom(const QDBusMessage &managedObjects);
    void SetDefaultAdapter(const QString &path);
    std::vector<bluez::CallSequence::Step> setUpSteps();
    std::optional<bluez::Call> naming() const;
    void TrackConnectedDevice(const DBusManagerStruct &objects);
    void DeviceConnected(const QString &path);
    void askForName();
    void DeviceDisconnected(const QString &path);
    void LogActiveDevice() const;
    void sendBTPropertyChange();

    bool aacDisabled_;
    PlayerRequests &player_;

    std::unique_ptr<AudioServer> server_;

    bluez::PendingCall search_;                        ///< for an adapter
    QString adapterPath_;                              ///< empty: no adapter
    bluez::CallSequence setUp_;                        ///< of that adapter
    bluez::PendingCall renaming_;                      ///< on demand
    bool renameAgain_ = false;                         ///< it was demanded again meanwhile
    int endpointCounter_ = 0;                          ///< of the next endpoint: no path is used twice
    std::vector<std::unique_ptr<Codec>> codecs_;       ///< outlive their endpoints
    std::vector<std::unique_ptr<Endpoint>> endpoints_; ///< one for each codec, while there is an adapter

    QString connectedDevicePath_; ///< empty: no phone
    QString connectedDeviceName_;
    bool nameKnown_ = false; ///< BlueZ has told the phone's name, or that it cannot
    bluez::PendingCall alias_;
    bool nameAgain_ = false; ///< another phone has connected meanwhile
    bluez::PendingCall disconnecting_;
    Transport *activeTransport_ = nullptr; ///< owned by its endpoint
};
