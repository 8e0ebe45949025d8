// SPDX-License-Identifier: MIT
#include "realbluez/phone.h"

#include "bluez/names.h"
#include "realbluez/sound.h"
#include "sim/sbcstream.h"
#include "sim/waiting.h"

#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>

#include <cerrno>
#include <unistd.h>

namespace realbluez {

namespace {

using bluez::AdapterInterface;
using bluez::AgentManagerInterface;
using bluez::DeviceInterface;
using bluez::RootPath;

// The virtual machines' processors are emulated, ten to twenty times slower than real ones. bluetoothd's own timeouts
// end earlier.
constexpr int CallTimeoutMs = 60'000;
constexpr int DiscoveryTimeoutMs = 120'000; // includes the time in which the speaker boots
constexpr int PollMs = 500;
// bluetoothd answers Connect after the first service is connected. The stream is configured later.
constexpr int ConfigurationTimeoutMs = 10'000;
// For the end of a connection that the phone hung up, or that ended with a crash of bluetoothd.
constexpr int DisconnectTimeoutMs = 30'000;
// bluetoothd tries to restore a lost link after 1, 2, 4 s and so on.
constexpr int ReconnectionTimeoutMs = 60'000;
// A phone's player sends silence for a while after it stops. Wait so long, so that the last packets have left the
// phone.
constexpr int SilenceMs = 500;
constexpr int SendIntervalMs = 5;

/// Returns the only format that these phones offer, so that both sides choose it.
sim::SbcFormat format()
{
    return {};
}

void pause(int ms)
{
    sim::waitFor([] { return false; }, ms);
}

/// Evaluates `condition` every PollMs until it is true. Returns false when it is still false after `ms`.
bool pollUntil(int ms, const std::function<bool()> &condition)
{
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > ms)
            return false;
        pause(PollMs);
    }
    return true;
}

} // namespace

Phone::Phone(int number)
    : name_(QStringLiteral("Phone %1").arg(number)), adapter_(QStringLiteral("/org/bluez/hci%1").arg(number - 1)),
      device_(adapter_ + QStringLiteral("/dev_00_AA_01_00_00_42")), own_(QStringLiteral("/phone%1").arg(number))
{
    QDBusConnection::systemBus().registerVirtualObject(own_, this);
    QObject::connect(&timer_, &QTimer::timeout, this, &Phone::sendDue);
    step(QStringLiteral("is switched on"),
         pollUntil(CallTimeoutMs, [this] { return set(adapter_, AdapterInterface, "Powered", true); })
             && set(adapter_, AdapterInterface, "Alias", name_));
    if (number == 1) { // one agent for all phones of this machine
        const QVariant agent = QVariant::fromValue(QDBusObjectPath(own_));
        call(RootPath, AgentManagerInterface, "RegisterAgent", {agent, QStringLiteral("DisplayYesNo")});
        call(RootPath, AgentManagerInterface, "RequestDefaultAgent", {agent});
    }
    const QVariantMap endpoint{
        {QStringLiteral("UUID"), QStringLiteral("0000110A-0000-1000-8000-00805F9B34FB")}, // A2DP source
        {QStringLiteral("Codec"), QVariant::fromValue<uchar>(0)},
        {QStringLiteral("Capabilities"), format().configuration()},
    };
    call(adapter_, bluez::MediaInterface, "RegisterEndpoint", {QVariant::fromValue(QDBusObjectPath(own_)), endpoint});
}

bool Phone::discover()
{
    call(adapter_, AdapterInterface, "SetDiscoveryFilter",
         {QVariantMap{{QStringLiteral("Transport"), QStringLiteral("bredr")}}});
    call(adapter_, AdapterInterface, "StartDiscovery");
    const bool found = pollUntil(
        DiscoveryTimeoutMs, [this] { return get(device_, DeviceInterface, "Name") == QStringLiteral("Kitchen BT"); });
    call(adapter_, AdapterInterface, "StopDiscovery");
    return step(QStringLiteral("finds \"Kitchen BT\""), found);
}

bool Phone::pair()
{
    return step(QStringLiteral("pairs"),
                call(device_, DeviceInterface, "Pair").type() == QDBusMessage::ReplyMessage
                    && set(device_, DeviceInterface, "Trusted", true));
}

bool Phone::connect()
{
    // Retry an accepted connection without a stream, because bluetoothd 5.66 may label an answer with the label of a
    // later request.
    constexpr int Tries = 3;
    bool configured = false;
    accepted_ = true;
    for (int i = 0; i < Tries && accepted_ && !configured; ++i)
        configured = tryToConnect();
    return step(QStringLiteral("connects"), configured);
}

bool Phone::connectWithRetries()
{
    return step(QStringLiteral("connects"), pollUntil(DisconnectTimeoutMs, [this] { return tryToConnect(); }));
}

bool Phone::connectWithoutStream()
{
    return step(QStringLiteral("connects without a stream"), !tryToConnect());
}

bool Phone::tryToConnect()
{
    accepted_ = false;
    call(device_, DeviceInterface, "Connect");
    return sim::waitFor([this] { return !transport_.isEmpty(); }, ConfigurationTimeoutMs);
}

bool Phone::awaitReconnection()
{
    return step(QStringLiteral("is connected by the speaker"),
                sim::waitFor([this] { return !transport_.isEmpty(); }, ReconnectionTimeoutMs));
}

bool Phone::disconnect()
{
    call(device_, DeviceInterface, "Disconnect");
    return step(QStringLiteral("hangs up"), !isConnected());
}

bool Phone::awaitDisconnected()
{
    return step(QStringLiteral("is disconnected"),
                pollUntil(DisconnectTimeoutMs, [this] { return !isConnected() && transport_.isEmpty(); }));
}

bool Phone::start(int seconds)
{
    const QDBusMessage reply = call(transport_, bluez::MediaTransportInterface, "Acquire");
    if (reply.type() == QDBusMessage::ReplyMessage) {
        descriptor_ = ::dup(reply.arguments().value(0).value<QDBusUnixFileDescriptor>().fileDescriptor());
        packets_ = sim::encodeSbc(sound(seconds, nextSound()), format(), reply.arguments().value(2).toInt());
        sent_ = 0;
        playing_.start();
        timer_.start(SendIntervalMs);
    }
    return step(QStringLiteral("plays a sound of %1 s").arg(seconds), descriptor_ >= 0 && !packets_.isEmpty());
}

bool Phone::keepPlaying(int seconds)
{
    pause(seconds * 1000);
    return step(QStringLiteral("plays for %1 s").arg(seconds), descriptor_ >= 0);
}

bool Phone::finish()
{
    const bool played = sim::waitFor([this] { return sent_ == packets_.size() || descriptor_ < 0; }, CallTimeoutMs)
        && descriptor_ >= 0;
    pause(SilenceMs);
    if (played) {
        endStream(true);
        call(transport_, bluez::MediaTransportInterface, "Release");
    }
    return step(QStringLiteral("plays to the end and pauses"), played);
}

bool Phone::awaitStreamCut()
{
    return step(QStringLiteral("loses its stream"), sim::waitFor([this] { return descriptor_ < 0; }, CallTimeoutMs));
}

bool Phone::handleMessage(const QDBusMessage &message, const QDBusConnection &connection)
{
    logLine(name_, QStringLiteral("is asked for ") + message.member());
    QDBusMessage reply = message.createReply();
    if (message.member() == QLatin1String("SelectConfiguration")) {
        accepted_ = true;
        reply << format().configuration();
    } else if (message.member() == QLatin1String("SetConfiguration")) {
        transport_ = message.arguments().value(0).value<QDBusObjectPath>().path();
    } else if (message.member() == QLatin1String("ClearConfiguration")) {
        transport_.clear();
    }
    return connection.send(reply);
}

QString Phone::introspect(const QString &) const
{
    return {};
}

QDBusMessage Phone::call(const QString &path, QLatin1String interface, const char *method,
                         const QVariantList &arguments)
{
    QDBusMessage message = QDBusMessage::createMethodCall(bluez::Service, path, interface, QLatin1String(method));
    message.setArguments(arguments);
    const QDBusPendingCallWatcher watcher(QDBusConnection::systemBus().asyncCall(message, CallTimeoutMs));
    sim::waitFor([&] { return watcher.isFinished(); }, 2 * CallTimeoutMs);
    const QDBusMessage reply = watcher.reply();
    if (reply.type() == QDBusMessage::ErrorMessage && QLatin1String(method) != QLatin1String("Get"))
        logLine(name_, QStringLiteral("%1: %2 %3").arg(QLatin1String(method), reply.errorName(), reply.errorMessage()));
    return reply;
}

bool Phone::set(const QString &path, QLatin1String interface, const char *property, const QVariant &value)
{
    return call(path, bluez::PropertiesInterface, "Set",
                {interface, QLatin1String(property), QVariant::fromValue(QDBusVariant(value))})
               .type()
        == QDBusMessage::ReplyMessage;
}

QVariant Phone::get(const QString &path, QLatin1String interface, const char *property)
{
    return call(path, bluez::PropertiesInterface, "Get", {interface, QLatin1String(property)})
        .arguments()
        .value(0)
        .value<QDBusVariant>()
        .variant();
}

bool Phone::step(const QString &text, bool done)
{
    logLine(name_, done ? text : QStringLiteral("FAILED: ") + text);
    return done;
}

bool Phone::isConnected()
{
    return get(device_, DeviceInterface, "Connected").toBool();
}

void Phone::sendDue()
{
    const double seconds = static_cast<double>(playing_.elapsed()) / 1000;
    while (sent_ < packets_.size() && sent_ * sim::packetSeconds(packets_.first(), format()) <= seconds) {
        const QByteArray &packet = packets_.at(sent_);
        if (::write(descriptor_, packet.constData(), static_cast<size_t>(packet.size())) < 0) {
            if (errno != EAGAIN)
                endStream(false);
            return;
        }
        ++sent_;
    }
}

void Phone::endStream(bool complete)
{
    timer_.stop();
    ::close(descriptor_);
    descriptor_ = -1;
    saveSent({packets_.mid(0, sent_), complete});
}

} // namespace realbluez
