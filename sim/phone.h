// SPDX-License-Identifier: MIT
#pragma once

#include "eventloop/filedescriptor.h"
#include "sim/fakebluez.h"
#include "sim/sbcstream.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

namespace sim {

/// A phone on the fake BlueZ. The daemon sees its actions in the order and form of a real bluetoothd. Functions that
/// call the daemon return whether the daemon accepted. The phone hangs up when the daemon calls Device1.Disconnect.
class Phone : public QObject {
    Q_OBJECT
public:
    /// Takes the phone's address from the last element of `path`, for example /org/bluez/hci0/dev_00_AA_01_01_00_42.
    Phone(FakeBluez &bluez, const QString &path, const QString &alias, QObject *parent = nullptr);
    ~Phone() override;

    QString path() const { return path_; }
    QString transportPath() const { return transportPath_; }

    /// Connects. A new phone appears by InterfacesAdded with Connected and Paired true, a known phone by
    /// PropertiesChanged {Connected: true}. MediaControl1 on the same path has its own Connected, at first false.
    void connect();
    using QObject::connect;
    /// Calls AuthorizeService of the agent for Advanced Audio Distribution (0000110d-...), as BlueZ does for every
    /// connection.
    bool authorize();
    /// Adds a new transport object (fd0, fd1, ... below the phone, State "idle") and calls SetConfiguration. Removes
    /// the object when the daemon refuses.
    bool configure(const SbcFormat &format);
    bool configure(uchar codec, const QByteArray &configuration);
    /// Calls ClearConfiguration, then removes the transport object and closes the stream socket.
    bool clear();

    /// Creates a socket pair if none exists, offers one end to Acquire and sets State to "pending". Returns whether the
    /// daemon acquired the stream within 10 s, which makes State "active".
    bool start(quint16 mtu = 672);
    /// Does the same without waiting for the daemon.
    bool requestStart(quint16 mtu = 672);
    /// Returns whether the daemon has acquired the stream.
    bool isActive() const;
    /// Stops playing and sets State to "idle". The socket stays open with its unread packets, and the next start()
    /// offers it again, as BlueZ does.
    void suspend();
    /// Hangs up: closes the socket, calls ClearConfiguration, sets Connected to false. Does not change State.
    void hangUp();
    /// Loses the link while streaming: the daemon's next read fails. Connected becomes false before ClearConfiguration,
    /// in contrast to hangUp().
    void loseLink();
    /// Calls clear() if a transport is configured, then sets Connected to false. Does nothing when not connected.
    void disconnect();
    using QObject::disconnect;

    /// Returns the phone's end of the stream socket (SOCK_SEQPACKET), or -1. The phone owns it.
    int socket() const { return socket_.get(); }
    /// Sends one packet. Runs the event loop while the socket is full. Returns false when the socket is closed, or
    /// stays full for 10 s.
    bool send(const QByteArray &packet);
    /// Returns whether the daemon has read all packets. Empty packets are not counted.
    bool drained() const;
    /// Sends packets at the rate of their audio, instead of any packets left from an earlier call. Retries while the
    /// socket is full. Emits `finished` after the last packet, or when the socket is closed.
    void play(const QList<QByteArray> &packets, const SbcFormat &format);
    bool isPlaying() const { return timer_.isActive(); }

Q_SIGNALS:
    void finished();

private:
    void sendDue();
    /// Sets "Connected" of Device1 or MediaControl1, unless it already has that value.
    void setConnected(const QString &interface, bool connected);

    FakeBluez &bluez_;
    QString path_;
    QString alias_;
    QString transportPath_;
    uchar codec_ = 0;
    int transports_ = 0;
    FileDescriptor socket_;  ///< the phone's end
    FileDescriptor offered_; ///< the daemon's end
    QList<QByteArray> queue_;
    double packetSeconds_ = 0;
    int sent_ = 0;
    QElapsedTimer started_;
    QTimer timer_;
};

} // namespace sim
