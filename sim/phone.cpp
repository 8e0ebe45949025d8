// SPDX-License-Identifier: MIT
#include "sim/phone.h"

#include "bluez/names.h"
#include "sim/waiting.h"

#include <cerrno>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace sim {

namespace {

const QString Connected = QStringLiteral("Connected");
const QString State = QStringLiteral("State");
const QString MediaControlInterface = QStringLiteral("org.bluez.MediaControl1");

// Advanced Audio Distribution (Bluetooth Assigned Numbers, 3.3). BlueZ passes it to the agent for sources and sinks.
const QString AdvancedAudioUuid = QStringLiteral("0000110d-0000-1000-8000-00805f9b34fb");

constexpr uchar SbcCodec = 0;
constexpr quint16 FullVolume = 127;
constexpr uint SmartphoneClass = 0x5A020C;
constexpr int FullSocketTimeoutMs = 10'000;
// Retry interval for a full socket, a fraction of a packet's duration.
constexpr int RetryMs = 5;

enum class Sent { Yes, Full, Gone };

Sent trySend(const FileDescriptor &socket, const QByteArray &packet)
{
    const ssize_t result = ::send(socket.get(), packet.constData(), static_cast<size_t>(packet.size()),
                                  MSG_DONTWAIT | MSG_NOSIGNAL);
    if (result >= 0)
        return Sent::Yes;
    return errno == EAGAIN || errno == EINTR ? Sent::Full : Sent::Gone;
}

bool succeeded(const QDBusMessage &answer)
{
    return answer.type() == QDBusMessage::ReplyMessage;
}

} // namespace

Phone::Phone(FakeBluez &bluez, const QString &path, const QString &alias, QObject *parent)
    : QObject(parent), bluez_(bluez), path_(path), alias_(alias)
{
    timer_.setTimerType(Qt::PreciseTimer);
    timer_.setSingleShot(true);
    QObject::connect(&timer_, &QTimer::timeout, this, &Phone::sendDue);
    QObject::connect(
        &bluez_, &FakeBluez::disconnectRequested, this,
        [this](const QString &device) {
            if (device == path_)
                hangUp();
        },
        Qt::QueuedConnection); // so that the daemon has the reply to Disconnect before hangUp() calls it
}

Phone::~Phone()
{
    if (!transportPath_.isEmpty())
        bluez_.withdrawStream(transportPath_);
}

void Phone::connect()
{
    if (bluez_.hasObject(path_)) {
        bluez_.setProperty(path_, bluez::DeviceInterface, Connected, true);
        return;
    }
    // The last element of the path is "dev_" and the address with underscores.
    const QString address = path_.section(QStringLiteral("dev_"), -1).replace(QLatin1Char('_'), QLatin1Char(':'));
    const QVariantMap device{
        {QStringLiteral("Adapter"), QVariant::fromValue(QDBusObjectPath(path_.section(QLatin1Char('/'), 0, -2)))},
        {QStringLiteral("Address"), address},
        {QStringLiteral("AddressType"), QStringLiteral("public")},
        {QStringLiteral("Alias"), alias_},
        {QStringLiteral("Blocked"), false},
        {QStringLiteral("Bonded"), true},
        {QStringLiteral("Class"), SmartphoneClass},
        {Connected, true},
        {QStringLiteral("Icon"), QStringLiteral("phone")},
        {QStringLiteral("LegacyPairing"), false},
        {QStringLiteral("Name"), alias_},
        {QStringLiteral("Paired"), true},
        {QStringLiteral("ServicesResolved"), false},
        {QStringLiteral("Trusted"), false},
        {QStringLiteral("UUIDs"), QStringList()},
    };
    bluez_.addObject(path_, {{bluez::DeviceInterface, device}});
    bluez_.addObject(path_, {{MediaControlInterface, {{Connected, false}}}});
    bluez_.setProperty(path_, bluez::DeviceInterface, QStringLiteral("UUIDs"),
                       QStringList{QStringLiteral("0000110a-0000-1000-8000-00805f9b34fb"), AdvancedAudioUuid});
    bluez_.setProperty(path_, bluez::DeviceInterface, QStringLiteral("ServicesResolved"), true);
}

bool Phone::authorize()
{
    return succeeded(bluez_.callAgent(QStringLiteral("AuthorizeService"),
                                      {QVariant::fromValue(QDBusObjectPath(path_)), AdvancedAudioUuid}));
}

bool Phone::configure(const SbcFormat &format)
{
    return configure(SbcCodec, format.configuration());
}

bool Phone::configure(uchar codec, const QByteArray &configuration)
{
    codec_ = codec;
    transportPath_ = QStringLiteral("%1/fd%2").arg(path_).arg(transports_++);

    // BlueZ reports the endpoint's UUID as it was registered.
    const RegisteredEndpoint *endpoint = bluez_.endpointFor(codec);
    const QVariantMap transport{
        {QStringLiteral("Device"), QVariant::fromValue(QDBusObjectPath(path_))},
        {QStringLiteral("UUID"), endpoint ? endpoint->uuid : QString(bluez::A2dpSinkUuid)},
        {QStringLiteral("Codec"), QVariant::fromValue(codec)},
        {QStringLiteral("Configuration"), configuration},
        {State, QStringLiteral("idle")},
        {QStringLiteral("Volume"), QVariant::fromValue(FullVolume)},
    };
    bluez_.addObject(transportPath_, {{bluez::MediaTransportInterface, transport}});
    const bool accepted = succeeded(bluez_.callEndpoint(
        codec, QStringLiteral("SetConfiguration"), {QVariant::fromValue(QDBusObjectPath(transportPath_)), transport}));
    if (accepted) {
        setConnected(MediaControlInterface, true);
    } else {
        bluez_.removeObject(transportPath_);
        transportPath_.clear();
    }
    return accepted;
}

bool Phone::clear()
{
    timer_.stop();
    const bool accepted = succeeded(bluez_.callEndpoint(codec_, QStringLiteral("ClearConfiguration"),
                                                        {QVariant::fromValue(QDBusObjectPath(transportPath_))}));
    bluez_.removeObject(transportPath_);
    transportPath_.clear();
    socket_.reset();
    offered_.reset();
    return accepted;
}

bool Phone::start(quint16 mtu)
{
    return requestStart(mtu) && waitFor([this] { return isActive(); });
}

bool Phone::requestStart(quint16 mtu)
{
    if (!socket_.isValid()) {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0)
            return false;
        socket_ = FileDescriptor(ends[0]);
        offered_ = FileDescriptor(ends[1]);
    }
    bluez_.offerStream(transportPath_, offered_.get(), mtu);
    bluez_.setProperty(transportPath_, bluez::MediaTransportInterface, State, QStringLiteral("pending"));
    return true;
}

bool Phone::isActive() const
{
    return bluez_.property(transportPath_, bluez::MediaTransportInterface, State).toString() == QLatin1String("active");
}

void Phone::suspend()
{
    timer_.stop();
    bluez_.withdrawStream(transportPath_);
    bluez_.setProperty(transportPath_, bluez::MediaTransportInterface, State, QStringLiteral("idle"));
}

void Phone::hangUp()
{
    timer_.stop();
    socket_.reset();
    disconnect();
}

void Phone::loseLink()
{
    timer_.stop();
    // Leave an unread packet in the socket, because closing it then makes the daemon's read fail with ECONNRESET.
    ::send(offered_.get(), "", 1, MSG_DONTWAIT | MSG_NOSIGNAL);
    socket_.reset();
    setConnected(bluez::DeviceInterface, false);
    if (!transportPath_.isEmpty())
        clear();
    setConnected(MediaControlInterface, false);
}

void Phone::disconnect()
{
    setConnected(MediaControlInterface, false);
    if (!transportPath_.isEmpty())
        clear();
    setConnected(bluez::DeviceInterface, false);
}

void Phone::setConnected(const QString &interface, bool connected)
{
    if (bluez_.property(path_, interface, Connected) == QVariant(!connected))
        bluez_.setProperty(path_, interface, Connected, connected);
}

bool Phone::send(const QByteArray &packet)
{
    Sent sent = Sent::Full;
    waitFor(
        [&] {
            sent = trySend(socket_, packet);
            return sent != Sent::Full;
        },
        FullSocketTimeoutMs);
    return sent == Sent::Yes;
}

bool Phone::drained() const
{
    int unread = 0;
    return ::ioctl(offered_.get(), FIONREAD, &unread) != 0 || unread == 0;
}

void Phone::play(const QList<QByteArray> &packets, const SbcFormat &format)
{
    queue_ = packets;
    sent_ = 0;
    packetSeconds_ = packets.isEmpty() ? 0 : packetSeconds(packets.first(), format);
    started_.start();
    timer_.start(0);
}

void Phone::sendDue()
{
    constexpr double MsPerSecond = 1000;
    while (sent_ < queue_.size()) {
        const double dueInMs = sent_ * packetSeconds_ * MsPerSecond - static_cast<double>(started_.elapsed());
        if (dueInMs > 0) {
            timer_.start(static_cast<int>(dueInMs) + 1);
            return;
        }
        const Sent sent = trySend(socket_, queue_.at(sent_));
        if (sent == Sent::Full) {
            timer_.start(RetryMs);
            return;
        }
        if (sent == Sent::Gone)
            break;
        ++sent_;
    }
    Q_EMIT finished();
}

} // namespace sim
