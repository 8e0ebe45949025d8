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
    /// With variants and containers unwrapped to plain values: QVariantMap, QByteArray, QStringList, QDBusObjectPath
    /// (whose toString() is the path) and so on.
    QVariantList arguments;
    qint64 ms = 0; ///< since the fake BlueZ was made

    /// One line for a person: member, path and arguments, for instance
    /// Set /org/bluez/hci0 "org.bluez.Adapter1" "Powered" true
    QString text() const;
};

/// An endpoint that was registered with Media1.
struct RegisteredEndpoint {
    QString service; ///< unique bus name of its owner
    QString adapter;
    QString path;
    QString uuid;
    uchar codec = 0;
    QByteArray capabilities;
};

/// BlueZ 5 on a private bus, as a sink daemon sees it: an object tree with ObjectManager, Properties and
/// introspection, Adapter1, Media1, AgentManager1, Device1 and MediaTransport1. It holds no radio: phones (see
/// phone.h) and tests move it. Calls to the daemon are made without blocking the loop that serves the daemon's calls.
class FakeBluez : public QDBusVirtualObject {
    Q_OBJECT
public:
    /// Answers a call itself (sends a reply, an error, or later, or never) and returns true, or returns false to have
    /// the fake answer as usual.
    using Interceptor = std::function<bool(const QDBusMessage &call)>;

    /// Connects to the bus at `address` as "org.bluez" and serves "/org/bluez" (AgentManager1) without an adapter.
    explicit FakeBluez(const QString &address);
    ~FakeBluez() override;

    // The object tree. Every change is announced as BlueZ does, unless it is made quietly.
    enum class Announce { Signal, Quietly };
    void addObject(const QString &path, const QVariantMapMap &interfaces, Announce how = Announce::Signal);
    /// Removes the interfaces named (all when none is) and the object with its last one.
    void removeObject(const QString &path, const QStringList &interfaces = {}, Announce how = Announce::Signal);
    /// An adapter as BlueZ has it at start: Alias "BlueZ 5.66", DiscoverableTimeout 180, with Adapter1 and Media1. It
    /// is not powered, as with AutoEnable=false in BlueZ's configuration. Pairable follows the agent, as in BlueZ.
    void addAdapter(const QString &path = QStringLiteral("/org/bluez/hci0"), Announce how = Announce::Signal);
    /// Removes an adapter and everything below it, the adapter last; releases and forgets the endpoints registered
    /// there.
    void removeAdapter(const QString &path = QStringLiteral("/org/bluez/hci0"));
    bool hasObject(const QString &path) const { return tree_.contains(QDBusObjectPath(path)); }
    QVariant property(const QString &path, const QString &interface, const QString &name) const;
    /// Stores a value and emits PropertiesChanged. The object must be there.
    void setProperty(const QString &path, const QString &interface, const QString &name, const QVariant &value);
    using QObject::setProperty;
    /// Emits PropertiesChanged with whatever is given and stores nothing.
    void emitPropertiesChanged(const QString &path, const QString &interface, const QVariantMap &changed);

    // Misbehaviour, by the name of the method called. What is set last for a method holds.
    void intercept(const QString &member, const Interceptor &interceptor);
    void stopIntercepting(const QString &member) { interceptors_.remove(member); }
    void refuse(const QString &member, const QString &errorName, const QString &text);
    void swallow(const QString &member);
    /// Answers a call as usual, for an interceptor that did so late.
    void answer(const QDBusMessage &call);
    /// Gives up the name "org.bluez" and disconnects without a word, as a crash does. `restart` comes back with an
    /// empty tree but for "/org/bluez", no agent and no endpoints; an adapter brings back the phones that were known.
    void crash();
    void restart();
    /// Another BlueZ, as after restart(), takes the name over before this one is gone: the name has an owner at any
    /// time.
    void replace();

    // What the daemon did.
    const QList<BluezCall> &calls() const { return calls_; }
    int countCalls(const QString &member) const;
    void forgetCalls() { calls_.clear(); }
    const QList<RegisteredEndpoint> &endpoints() const { return endpoints_; }
    /// The endpoint registered for `codec`; null when there is none. Good until the next one comes or goes.
    const RegisteredEndpoint *endpointFor(uchar codec) const;
    QString agentPath() const { return agent_.path; }
    bool defaultAgent() const { return agent_.isDefault; }

    /// Hands `fd` out at the next Acquire of the transport at `path` (a duplicate; the caller keeps its own), with
    /// both MTUs `mtu`; the object of the transport must be in the tree. After the reply has been sent the property
    /// State becomes "active", as in BlueZ. Acquire fails with NotAvailable while nothing is offered, and with
    /// NotAuthorized when it was handed out already.
    void offerStream(const QString &path, int fd, quint16 mtu);
    void withdrawStream(const QString &path) { streams_.erase(path); }

    /// Calls a method of the daemon's agent or of the endpoint for `codec`, and returns its reply or error; an error
    /// "sim.NoEndpoint" or "sim.NoAgent" when there is none. The event loop runs meanwhile; at most 10 s.
    QDBusMessage callAgent(const QString &member, const QVariantList &arguments);
    QDBusMessage callEndpoint(uchar codec, const QString &member, const QVariantList &arguments);
    /// The same for any object of the daemon's.
    QDBusMessage call(const QDBusMessage &message) { return callAndWait(connection_, message); }

    QDBusConnection connection() const { return connection_; }

    QString introspect(const QString &path) const override;
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override;

Q_SIGNALS:
    void called(const sim::BluezCall &call);
    /// Device1.Disconnect was answered; the phone does the rest.
    void disconnectRequested(const QString &path);

private:
    struct Method;
    struct Stream {
        FileDescriptor fd; ///< none once it was handed out
        quint16 mtu;
    };
    struct Agent {
        QString service;
        QString path;
        bool isDefault = false;
    };

    static const QList<Method> &methods();

    void takeName();
    /// As bluetoothd does on disk: the phones that it knows now are there again with their adapter.
    void storePhones();
    void forgetEverything();
    void forgetClient(const QString &service);
    void forgetEndpoints(const std::function<bool(const RegisteredEndpoint &)> &which);
    /// The UUIDs of an adapter follow the endpoints registered there.
    void tellServices(const QString &adapter);
    void remember(const QDBusMessage &message);
    void refuseCall(const QDBusMessage &call, const QString &errorName, const QString &text);
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
