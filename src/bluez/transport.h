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

/// A configured media transport of BlueZ, from SetConfiguration to the end of the configuration. It follows the
/// property "State" and acquires the stream's socket when the phone starts. It passes every packet to the codec, which
/// writes to the current client of the local audio socket. Packets are read with or without a client.
class Transport : public QObject {
    Q_OBJECT
public:
    /// Follows the transport at `path` and writes its audio to the clients of `server`. `codec` and `server` must
    /// outlive the transport.
    Transport(const QString &path, Codec &codec, AudioServer &server);
    ~Transport() override;

    /// Creates the local audio socket for all transports of the process.
    static std::unique_ptr<AudioServer> InitSocketServer();

    /// Returns whether BlueZ has reported the stream as active.
    bool isActive() const;

    /// Asks the player to play this stream of the phone called `name`. Only logs a message if the stream is not active.
    void SelectBluetooth(PlayerRequests &player, const QString &name) const;

Q_SIGNALS:
    /// Emitted when isActive() changes. The destructor does not emit it.
    void transportActive(bool active);

public Q_SLOTS:
    /// Receives the PropertiesChanged signals of the transport's object.
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
    void retryEndedStream();
    enum class Read { Packet, Nothing, Ended };
    /// Reads one packet from the socket and passes it to the codec.
    [[gnu::hot]] Read readPacket();
    [[gnu::hot]] void AdoptWaitingClient();
    void Cleanup();
    void DeleteSocket();

    QString path_;
    Codec &codec_;
    AudioServer &server_;
    QString state_;

    bluez::PendingCall acquire_;    ///< one at a time, because BlueZ refuses a second Acquire
    bool idleSinceAcquire_ = false; ///< the stream went idle after the last Acquire() call

    // The acquired stream. fd_ is invalid while no stream is acquired.
    FileDescriptor fd_;
    int readMtu_ = 0;
    std::unique_ptr<char[]> buffer_;
    std::optional<PacketNotifier> notifier_;

    QTimer endedStreamTimer_;
    std::unique_ptr<AudioClient> socket_;
};
