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
/// The manager adopts BlueZ's first adapter and sets it up as an Adapter. It tracks the phone that connected first and
/// the current transport, and notifies the player of every change. Its calls to BlueZ do not block.
class AdapterManager : public AbstractManager, public QDBusContext {
    Q_OBJECT
public:
    /// Requests the service name (a refusal is a fatal message), opens the local audio socket and starts the search for
    /// an adapter. If `aacDisabled`, phones are offered SBC only. `player` must outlive the manager.
    AdapterManager(bool aacDisabled, PlayerRequests &player, QObject *parent = nullptr);
    ~AdapterManager() override;

    bool IsAdapterPresent() const override { return adapter_ != nullptr; }
    bool IsConnected() const override { return !device_.path().isEmpty(); }
    QString ConnectedDevicePath() const override { return device_.path(); }
    QString Name() const override { return device_.name(); }
    bool IsStreaming() const override;
    /// Sets the adapter's alias to the name of readSpeakerName() and " BT". Does nothing without an adapter or a name.
    void ResetAlias() override;
    void Disconnect() override { device_.Disconnect(); }
    void SelectBluetooth() override;

    /// Sets the current media transport, null for none. The endpoint keeps ownership and must pass null when it
    /// destroys the transport.
    void setActiveTransport(Transport *transport);
    /// Returns the local audio socket, from which transports take their clients.
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

    bluez::PendingCall search_;        ///< looks for an adapter
    std::unique_ptr<Adapter> adapter_; ///< null without an adapter
    int endpointCounter_ = 0;
    ConnectedDevice device_;
    Transport *activeTransport_ = nullptr; ///< owned by its endpoint
};
