// SPDX-License-Identifier: MIT
#pragma once

#include "eventloop/filedescriptor.h"
#include "sim/fakebluez.h"
#include "sim/sbcstream.h"

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

namespace sim {

/// A phone on the fake BlueZ: what it does reaches the daemon in the order and form in which a real bluetoothd reports
/// it. Steps that ask the daemon something return whether it agreed. When the daemon calls Device1.Disconnect, the
/// phone hangs up.
class Phone : public QObject {
    Q_OBJECT
public:
    /// A phone at the address of `path`'s last element, for instance /org/bluez/hci0/dev_00_AA_01_01_00_42.
    Phone(FakeBluez &bluez, const QString &path, const QString &alias, QObject *parent = nullptr);
    ~Phone() override;

    QString path() const { return path_; }
    QString transportPath() const { return transportPath_; }

    /// Connects: an unknown phone appears by InterfacesAdded with Connected already true (and Paired), a known one by
    /// PropertiesChanged {Connected: true}. MediaControl1 on the same path has a Connected of its own, false at first.
    void connect();
    using QObject::connect;
    /// Asks the agent for the A2DP source service (0000110d-...), as BlueZ does for every connection.
    bool authorize();
    /// Adds a new transport object (fd0, fd1, ... below the phone, State "idle") and calls SetConfiguration. When the
    /// daemon refuses, the object goes again.
    bool configure(const SbcFormat &format);
    bool configure(uchar codec, const QByteArray &configuration);
    /// ClearConfiguration, and the transport object and the stream socket go.
    bool clear();

    /// Makes a socket pair, offers its end and reports State "pending"; returns whether the daemon acquired it within
    /// 5 s. "active" follows by itself.
    bool start(quint16 mtu = 672);
    /// The same without waiting for the daemon.
    bool wantToStart(quint16 mtu = 672);
    /// The daemon has acquired the stream that the phone started.
    bool isActive() const;
    /// Stops playing; State "idle". The socket and what is in it stay: the next start() hands it out again, as BlueZ
    /// does.
    void suspend();
    /// Hangs up while streaming: the socket ends, ClearConfiguration, Connected false; no State change.
    void hangUp();
    /// The link breaks while streaming: what the daemon reads next fails; other than when a phone hangs up, Connected
    /// false comes before ClearConfiguration.
    void loseLink();
    /// Reports Connected false (after clear() when a transport is configured); nothing when it is not connected.
    void disconnect();
    using QObject::disconnect;

    /// The phone's end of the stream socket (SOCK_SEQPACKET), -1 when there is none. Owned by the phone.
    int socket() const { return socket_.get(); }
    /// Sends one packet at once; waits, with the event loop running, while the socket is full. False when it is gone,
    /// or stays full for 10 s.
    bool send(const QByteArray &packet);
    /// The daemon has read all that was sent. An empty packet does not count.
    bool drained() const;
    /// Sends packets at the pace of their audio, in place of any that are still to be sent; `finished` follows the
    /// last, or the end of the socket. Packets that are due while the socket is full follow when there is room.
    void play(const QList<QByteArray> &packets, const SbcFormat &format);
    bool isPlaying() const { return timer_.isActive(); }

Q_SIGNALS:
    void finished();

private:
    void sendDue();
    /// The property "Connected" of Device1 or MediaControl1; nothing when it is so already.
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
    double secondsAPacket_ = 0;
    int sent_ = 0;
    QElapsedTimer started_;
    QTimer timer_;
};

} // namespace sim
