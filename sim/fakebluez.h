// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/objecttree.h"
#include "eventloop/filedescriptor.h"
#include "sim/waiting.h"

#include <QByteArray>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QString>

#include <functional>
#include <map>
#include <memory>

namespace sim {

/// A method call that reached the fake BlueZ.
struct BluezCall {
    QString path;
    QString interface;
    QString member;
    /// Plain values without QDBusVariant and QDBusArgument: QVariantMap, QByteArray, QStringList, QDBusObjectPath
    /// (whose toString() returns the path) and others.
    QVariantList arguments;
    qint64 ms = 0; ///< since the fake BlueZ was created

    /// Returns member, path and arguments as one readable line, for example
    /// Set /org/bluez/hci0 "org.bluez.Adapter1" "Powered" true
    QString text() const;
};

/// An endpoint that a client has registered with Media1.
struct RegisteredEndpoint {
    QString service; ///< unique bus name of its owner
    QString adapter;
    QString path;
    QString uuid;
    uchar codec = 0;
    QByteArray capabilities;
};

/// BlueZ 5 on a private bus, as a sink daemon sees it: an object tree with ObjectManager, Properties and
/// introspection, Adapter1, Media1, AgentManager1, Device1 and MediaTransport1. It has no radio. Phones (see phone.h)
/// and tests change its state. Its calls to the daemon run the event loop, so that the daemon can call it meanwhile.
class FakeBluez : public QDBusVirtualObject {
    Q_OBJECT
public:
    /// Answers a call itself (with a reply or an error, at once, later or never) and returns true. Returns false to let
    /// the fake BlueZ answer as usual.
    using Interceptor = std::function<bool(const QDBusMessage &call)>;

    /// Connects to the bus at `address` as "org.bluez". Serves "/org/bluez" (AgentManager1), without an adapter.
    explicit FakeBluez(const QString &address);
    ~FakeBluez() override;

    // The object tree. With Announce::Yes a change emits the signals that BlueZ emits.
    enum class Announce { Yes, No };
    void addObject(const QString &path, const QVariantMapMap &interfaces, Announce announce = Announce::Yes);
    /// Removes the given interfaces (all when the list is empty), and the object when no interface remains.
    void removeObject(const QString &path, const QStringList &interfaces = {}, Announce announce = Announce::Yes);
    /// Adds an adapter in BlueZ's initial state: Adapter1 and Media1, Alias "BlueZ 5.66", DiscoverableTimeout 180. It
    /// is not powered, as with AutoEnable=false in BlueZ's configuration. Pairable is true if an agent is registered,
    /// as in BlueZ. Also adds the phones that were known below this path.
    void addAdapter(const QString &path = QStringLiteral("/org/bluez/hci0"), Announce announce = Announce::Yes);
    /// Removes an adapter after all objects below it. Calls Release on the endpoints registered there, and removes
    /// them.
    void removeAdapter(const QString &path = QStringLiteral("/org/bluez/hci0"));
    bool hasObject(const QString &path) const { return tree_.contains(QDBusObjectPath(path)); }
    QVariant property(const QString &path, const QString &interface, const QString &name) const;
    /// Stores a value and emits PropertiesChanged. The object must exist.
    void setProperty(const QString &path, const QString &interface, const QString &name, const QVariant &value);
    using QObject::setProperty;
    /// Emits PropertiesChanged with any content. Stores nothing.
    void emitPropertiesChanged(const QString &path, const QString &interface, const QVariantMap &changed);

    // Misbehaviour, by method name. A new setting for a method replaces the old one.
    void intercept(const QString &member, const Interceptor &interceptor);
    void stopIntercepting(const QString &member) { interceptors_.remove(member); }
    void refuse(const QString &member, const QString &errorName, const QString &text);
    void neverAnswer(const QString &member);
    /// Answers a call as usual. For interceptors that answer late.
    void answer(const QDBusMessage &call);
    /// Disconnects from the bus without further signals, as a crash does, and loses the name "org.bluez".
    void crash();
    /// Takes the name again. The tree has only "/org/bluez", and there is no agent and no endpoint. addAdapter() adds
    /// the known phones again.
    void restart();
    /// Lets a second BlueZ, in the state after restart(), take over the name before the first one disconnects. The name
    /// has an owner at all times.
    void replace();

    // What the daemon did.
    const QList<BluezCall> &calls() const { return calls_; }
    int countCalls(const QString &member) const;
    void clearCalls() { calls_.clear(); }
    const QList<RegisteredEndpoint> &endpoints() const { return endpoints_; }
    /// Returns the endpoint registered for `codec`, or null. Valid until an endpoint is added or removed.
    const RegisteredEndpoint *endpointFor(uchar codec) const;
    QString agentPath() const { return agent_.path; }
    bool defaultAgent() const { return agent_.isDefault; }

    /// Returns a duplicate of `fd`, with `mtu` as both MTUs, from the next Acquire of the transport at `path`. The
    /// caller keeps `fd`. The transport's object must exist. State becomes "active" after the reply, as in BlueZ.
    /// Acquire fails with NotAvailable before an offer, and with NotAuthorized when the offer has already been
    /// acquired.
    void offerStream(const QString &path, int fd, quint16 mtu);
    void withdrawStream(const QString &path) { streams_.erase(path); }

    /// Call a method of the daemon's agent, or of its endpoint for `codec`. Return the reply or error, or the error
    /// "sim.NoAgent" or "sim.NoEndpoint" when none is registered. Run the event loop meanwhile, for 10 s at most.
    QDBusMessage callAgent(const QString &member, const QVariantList &arguments);
    QDBusMessage callEndpoint(uchar codec, const QString &member, const QVariantList &arguments);
    /// Calls a method of any object of the daemon, under the same conditions.
    QDBusMessage call(const QDBusMessage &message) { return callAndWait(connection_, message); }

    QDBusConnection connection() const { return connection_; }

    QString introspect(const QString &path) const override;
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override;

Q_SIGNALS:
    void called(const sim::BluezCall &call);
    /// Emitted after the reply to Device1.Disconnect. The phone must then disconnect.
    void disconnectRequested(const QString &path);

private:
    struct Method;
    struct Stream {
        FileDescriptor fd; ///< invalid after it was acquired
        quint16 mtu;
    };
    struct Agent {
        QString service;
        QString path;
        bool isDefault = false;
    };

    static const QList<Method> &methods();

    void acquireName();
    /// Stores the known phones, as bluetoothd does on disk, so that addAdapter() can add them again.
    void storePhones();
    void clearState();
    void removeClient(const QString &service);
    void removeEndpoints(const std::function<bool(const RegisteredEndpoint &)> &which);
    /// Sets an adapter's UUIDs to those of the endpoints registered there.
    void updateUuids(const QString &adapter);
    void recordCall(const QDBusMessage &message);
    void sendError(const QDBusMessage &call, const QString &errorName, const QString &text);
    void reply(const QDBusMessage &call, const QVariantList &arguments = {});

    void getManagedObjects(const QDBusMessage &call);
    void get(const QDBusMessage &call);
    void set(const QDBusMessage &call);
    void registerAgent(const QDBusMessage &call);
    void requestDefaultAgent(const QDBusMessage &call);
    void registerEndpoint(const QDBusMessage &call);
    void acquire(const QDBusMessage &call);
    void disconnectDevice(const QDBusMessage &call);

    QString address_;
    QDBusConnection connection_;
    std::unique_ptr<QDBusServiceWatcher> clients_;
    DBusManagerStruct tree_;
    QHash<QString, Interceptor> interceptors_;
    QList<BluezCall> calls_;
    QList<RegisteredEndpoint> endpoints_;
    std::map<QString, Stream> streams_;
    std::map<QString, QVariantMap> stored_; ///< Device1 of phones, by path
    Agent agent_;
    QElapsedTimer clock_;
};

} // namespace sim
