#pragma once

#include "core/filedescriptor.h"

#include <QObject>
#include <QSocketNotifier>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>

#include <memory>

class AbstractManager;
class AudioClient;
class Codec;
class PlayerRequests;

/// One configured media transport of BlueZ, from SetConfiguration to its end. It follows the property "State", acquires
/// the stream's socket when the phone starts, and hands every packet to the codec, which writes to the one client of
/// the local audio socket. Packets are read whether or not a client is there.
class Transport : public QObject {
    Q_OBJECT
public:
    /// The transport at `path`. Codec, manager and requests outlive it.
    Transport(const QString &path, Codec &codec, const AbstractManager &manager, PlayerRequests &player);
    ~Transport() override;

    /// Makes the local audio socket, one for the process; later calls change nothing.
    static void InitSocketServer();

    /// BlueZ says that the stream is active.
    bool isActive() const;

    /// Asks the player to play this stream; only logged while it is not active.
    void SelectBluetooth();

Q_SIGNALS:
    /// The stream became active, or stopped being so. Not sent by the destructor.
    void transportActive(bool active);

public Q_SLOTS:
    /// A PropertiesChanged signal of the transport's object.
    void PropertiesChanged(const QString &interface, const QVariantMap &changed, const QStringList &invalidated);

private:
    /// Calls readData() itself: a signal would take 400 of the 1,500 instructions that a packet costs besides decoding.
    class PacketNotifier final : public QSocketNotifier {
    public:
        PacketNotifier(int fd, Transport &transport);

    protected:
        bool event(QEvent *event) override;

    private:
        Transport &transport_;
    };

    void setState(const QString &state);
    void Acquire();
    void readData();
    enum class Read { Packet, Nothing, Ended };
    /// One read, one packet.
    Read readPacket();
    void AdoptWaitingClient();
    void Cleanup();
    enum class Farewell { AtOnce, AfterItsAudio };
    void DeleteSocket(Farewell farewell);

    QString path_;
    Codec &codec_;
    const AbstractManager &manager_;
    PlayerRequests &player_;
    QString state_;

    // The acquired stream. Without one, fd_ is none.
    FileDescriptor fd_;
    int readMtu_ = 0;
    std::unique_ptr<char[]> buffer_;
    std::unique_ptr<PacketNotifier> notifier_;

    QTimer lookAgain_;
    std::unique_ptr<AudioClient> socket_;
};
