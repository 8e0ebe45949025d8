#pragma once

#include "bus/objecttree.h"
#include "codec/codecaac.h"
#include "codec/codecsbc.h"
#include "core/abstractmanager.h"

#include <QDBusContext>
#include <QDBusObjectPath>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>

class Endpoint;
class PlayerRequests;

/// The manager of a speaker whose radio is a BlueZ adapter.
///
/// It adopts the first adapter and makes it a speaker: named, powered, discoverable without time limit, with the
/// pairing agent and an endpoint for each codec. It tracks the one phone that connected first and the current
/// transport, and tells the player of every change. Every call to BlueZ waits for its answer.
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
    void setActiveTransport(Transport *transport) override;

private Q_SLOTS:
    void InterfacesAdded(const QDBusObjectPath &aPath, const QVariantMapMap &interfaces);
    void InterfacesRemoved(const QDBusObjectPath &aPath, const QStringList &aStringList);
    void PropertiesChanged(const QString &interface, const QVariantMap &changed, const QStringList &invalidated);
    void transportActive(bool active);
    void serviceOwnerChanged(const QString &service, const QString &oldOwner, const QString &newOwner);

private:
    void subscribe();
    void FindAnAvailableAdapter();
    void SetDefaultAdapter(const QString &path);
    static void RegisterAgent(const QString &agentPath);
    void TrackConnectedDevice(const DBusManagerStruct &objects);
    void DeviceConnected(const QString &path);
    void DeviceDisconnected(const QString &path);
    void LogActiveDevice() const;
    void sendBTPropertyChange();

    static void SetProperty(const QString &interface, const QString &path, const QString &name, const QVariant &value);
    static QVariant GetProperty(const QString &interface, const QString &path, const QString &name);

    bool aacDisabled_;
    PlayerRequests &player_;

    QString adapterPath_; ///< empty: no adapter
    // A codec is replaced with the next adapter, not with the loss of this one; it outlives its endpoint.
    std::unique_ptr<CodecSBC> sbcCodec_;
    std::unique_ptr<CodecAAC> aacCodec_;
    std::unique_ptr<Endpoint> sbcEndpoint_;
    std::unique_ptr<Endpoint> aacEndpoint_;

    QString connectedDevicePath_; ///< empty: no phone
    QString connectedDeviceName_;
    Transport *activeTransport_ = nullptr; ///< owned by its endpoint
};
