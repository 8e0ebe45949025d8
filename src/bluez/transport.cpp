// SPDX-License-Identifier: MIT
#include "bluez/transport.h"

#include "bluez/call.h"
#include "bluez/names.h"
#include "codec/codec.h"
#include "log/log.h"
#include "player/audioclient.h"
#include "player/audioserver.h"
#include "player/playerrequests.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>

#include <cerrno>
#include <fcntl.h>

namespace {

constexpr QLatin1String Pending("pending");
constexpr QLatin1String Active("active");

// After end of file or an error, the socket stays readable until BlueZ reports the end of the stream, seconds later.
// Retry the read at this interval, which costs nothing and detects a stream that goes on.
constexpr int EndedStreamRetryMs = 100;

// About seven seconds of audio, more than a socket buffers. Limits the reading if packets arrive as fast as they are
// read.
constexpr int MaxPacketsAtEnd = 512;

/// Extracts the descriptor and the read MTU from an Acquire reply (h, q, q). Returns false for an error or other types.
bool parseAcquireReply(const QDBusMessage &reply, FileDescriptor &fd, int &readMtu)
{
    const QVariantList values = reply.arguments();
    if (reply.type() != QDBusMessage::ReplyMessage || !reply.signature().startsWith(QLatin1String("hq")))
        return false;
    fd = FileDescriptor(
        ::fcntl(qvariant_cast<QDBusUnixFileDescriptor>(values.at(0)).fileDescriptor(), F_DUPFD_CLOEXEC, 0));
    readMtu = values.at(1).toInt();
    return fd.isValid() && readMtu > 0;
}

} // namespace

Transport::Transport(const QString &path, Codec &codec, AudioServer &server)
    : path_(path), codec_(codec), server_(server)
{
    qDebug("Transport()");
    endedStreamTimer_.setSingleShot(true);
    endedStreamTimer_.setInterval(EndedStreamRetryMs);
    connect(&endedStreamTimer_, &QTimer::timeout, this, &Transport::retryEndedStream);
    QDBusConnection::systemBus().connect(bluez::Service, path_, bluez::PropertiesInterface, bluez::PropertiesChanged,
                                         bluez::PropertiesChangedSignature, this,
                                         SLOT(PropertiesChanged(QString, QVariantMap, QStringList)));
}

Transport::~Transport()
{
    qDebug("~Transport");
    Cleanup();
}

std::unique_ptr<AudioServer> Transport::InitSocketServer()
{
    qDebug("Transport::InitSocketServer()");
    return std::make_unique<AudioServer>();
}

bool Transport::isActive() const
{
    return state_ == Active;
}

void Transport::SelectBluetooth(PlayerRequests &player, const QString &name) const
{
    if (!isActive()) {
        qDebug("0SelectBluetooth(): transport not active");
        return;
    }
    player.sendPlay(codec_.formatName(), codec_.sampleRate, codec_.bitDepth, codec_.channels, name);
}

void Transport::PropertiesChanged(const QString &interface, const QVariantMap &changed, const QStringList &invalidated)
{
    logDebug("Transport::PropertiesChanged") << interface << changed << invalidated;
    if (interface != bluez::MediaTransportInterface)
        return;
    const QVariant state = changed.value(bluez::StateProperty);
    if (state.userType() == QMetaType::QString)
        setState(state.toString());
}

void Transport::setState(const QString &state)
{
    logDebug("0Transport State =") << state;
    if (state == Pending) {
        if (!fd_.isValid() && !acquire_.isPending())
            Acquire();
    } else if (state != Active) {
        idleSinceAcquire_ = true;
        Cleanup();
    }
    const bool wasActive = isActive();
    state_ = state;
    if (isActive() != wasActive)
        Q_EMIT transportActive(isActive());
}

void Transport::Acquire()
{
    idleSinceAcquire_ = false;
    acquire_.start({path_,
                    bluez::MediaTransportInterface,
                    QStringLiteral("Acquire"),
                    {},
                    bluez::Need::Vital,
                    bluez::PhoneReplyTimeoutMs},
                   [this](const QDBusMessage &reply) { acquired(reply); });
}

void Transport::acquired(const QDBusMessage &reply)
{
    logDebug() << reply;

    FileDescriptor fd;
    int readMtu = 0;
    if (!parseAcquireReply(reply, fd, readMtu)) {
        logDebug("0org.bluez.MediaTransport1.Acquire:") << reply.errorName() << reply.errorMessage();
        if (idleSinceAcquire_ && state_ == Pending) // the error was for the earlier stream
            Acquire();
        return;
    }
    if (state_ != Pending && state_ != Active)
        return;
    // BlueZ's sockets are non-blocking already. Set the flag anyway, because Cleanup() reads until the socket is empty.
    ::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) | O_NONBLOCK);
    fd_ = std::move(fd);
    readMtu_ = readMtu;
    buffer_.reset(new char[static_cast<size_t>(readMtu)]);
    codec_.prepare(readMtu);
    notifier_.emplace(fd_.get(), *this);
}

void Transport::readData()
{
    if (readPacket() != Read::Ended)
        return;
    notifier_->setEnabled(false);
    endedStreamTimer_.start();
}

void Transport::retryEndedStream()
{
    notifier_->setEnabled(true);
    readData();
}

Transport::Read Transport::readPacket()
{
    const ssize_t length = ::read(fd_.get(), buffer_.get(), static_cast<size_t>(readMtu_));
    if (length <= 0)
        return length < 0 && (errno == EAGAIN || errno == EINTR) ? Read::Nothing : Read::Ended;
    AdoptWaitingClient();
    codec_.processPacket(buffer_.get(), static_cast<int>(length), socket_.get());
    return Read::Packet;
}

void Transport::AdoptWaitingClient()
{
    if (!socket_ || !socket_->isConnected())
        server_.acceptPending();
    if (!server_.hasWaiting())
        return;
    if (std::unique_ptr<AudioClient> next = server_.nextClient()) {
        DeleteSocket();
        socket_ = std::move(next);
        qDebug("0New audio out socket connection accepted");
    }
}

void Transport::Cleanup()
{
    if (!fd_.isValid())
        return;
    // The stream's last packets are still in the socket when BlueZ reports the end.
    for (int i = 0; i < MaxPacketsAtEnd && readPacket() == Read::Packet; ++i) {
    }
    qDebug("Cleanup Transport");
    endedStreamTimer_.stop();
    notifier_.reset();
    fd_.reset();
    buffer_.reset();
    DeleteSocket();
}

void Transport::DeleteSocket()
{
    if (!socket_)
        return;
    qDebug("Transport::DeleteSocket()");
    socket_.reset();
}
