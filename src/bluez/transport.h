// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/pendingcall.h"
#include "eventloop/directnotifier.h"
#include "eventloop/filedescriptor.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>

#include <memory>
#include <optional>

class AudioClient;
class AudioServer;
class Codec;
class PlayerRequests;

/// One configured media transport of BlueZ, from SetConfiguration to its end. It follows the property "State", acquires
/// the stream's socket when the phone starts, and hands every packet to the codec, which writes to the one client of
/// the local audio socket. Packets are read whether or not a client is there.
class Transport : public QObject {
    Q_OBJECT
public:
    /// The transport at `path`, heard by the clients of `server`. Codec and server outlive it.
    Transport(const QString &path, Codec &codec, AudioServer &server);
    ~Transport() override;

    /// Makes the local audio socket, for all transports of the process.
    static std::unique_ptr<AudioServer> InitSocketServer();

    /// BlueZ says that the stream is active.
    bool isActive() const;

    /// Asks the player to play this stream of the phone called `name`; only logged while it is not active.
    void SelectBluetooth(PlayerRequests &player, const QString &name) const;

Q_SIGNALS:
    /// The stream became active, or stopped being so. Not sent by the destructor.
    void transportActive(bool active);

public Q_SLOTS:
    /// A PropertiesChanged signal of the transport's object.
    void PropertiesChanged(const QString &interface, const QVariantMap &changed, const QStringList &invalidated);

private:
    class PacketNotifier final : public DirectNotifier {
    public:
        PacketNotifier(int fd, Transport &transport) : DirectNotifier(fd), transport_(transport) {}
        [[gnu::hot]] void ready() override { transport_.readData(); }

    private:
        Transport &transport_;
    };

    void setState(const QString &state);
    void Acquire();
    void acquired(const QDBusMessage &reply);
    [[gnu::hot]] void readData();
    void lookAgain();
    enum class Read { Packet, Nothing, Ended };
    /// One read, one packet.
    [[gnu::hot]] Read readPacket();
    [[gnu::hot]] void AdoptWaitingClient();
    void Cleanup();
    void DeleteSocket();

    QString path_;
    Codec &codec_;
    AudioServer &server_;
    QString state_;

    bluez::PendingCall acquire_; ///< one at a time: BlueZ refuses a second
    bool wentIdle_ = false;      ///< since it was made

    // The acquired stream. Without one, fd_ is none.
    FileDescriptor fd_;
    int readMtu_ = 0;
    std::unique_ptr<char[]> buffer_;
    std::optional<PacketNotifier> notifier_;

    QTimer untilNextLook_;
    std::unique_ptr<AudioClient> socket_;
};
