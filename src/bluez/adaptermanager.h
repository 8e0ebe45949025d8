// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/connecteddevice.h"
#include "bluez/objecttree.h"
#include "bluez/pendingcall.h"
#include "control/abstractmanager.h"

#include <QDBusContext>
#include <QDBusObjectPath>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>

class Adapter;
class AudioServer;
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

    bool IsAdapterPresent() const override { return adapter_ != nullptr; }
    bool IsConnected() const override { return !device_.path().isEmpty(); }
    QString ConnectedDevicePath() const override { return device_.path(); }
    QString Name() const override { return device_.name(); }
    bool IsStreaming() const override;
    /// Names the adapter after the first line of "/var/data/player_name"; without a name it keeps its own.
    void ResetAlias() override;
    void Disconnect() override { device_.Disconnect(); }
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
    void TrackConnectedDevice(const DBusManagerStruct &objects);
    void DeviceConnected(const QString &path);
    void DeviceDisconnected(const QString &path);
    void LogActiveDevice() const;
    void sendBTPropertyChange();

    bool aacDisabled_;
    PlayerRequests &player_;

    std::unique_ptr<AudioServer> server_;

    bluez::PendingCall search_;        ///< for an adapter
    std::unique_ptr<Adapter> adapter_; ///< null: no adapter
    int endpointCounter_ = 0;
    ConnectedDevice device_;
    Transport *activeTransport_ = nullptr; ///< owned by its endpoint
};
