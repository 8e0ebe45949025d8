#include "player/playerrequests.h"

#include "log/log.h"
#include "player/httpget.h"

namespace {

constexpr QLatin1String Player("http://127.0.0.1:11000");
constexpr quint16 PlayerPort = 11000;

// Requests that are under way together may overtake each other. One that has had this long has arrived, whether or not
// the player has answered.
constexpr int PatienceMs = 250;

// A player that does not answer is not given any number of connections.
constexpr int MaxUnderWay = 5;

// Each notification carries the whole state, and a wish to play this old has passed: the oldest are of no use.
constexpr int MaxWaiting = 64;

QString text(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace

PlayerRequests::PlayerRequests(QObject *parent) : QObject(parent)
{
    patience_.setSingleShot(true);
    patience_.setInterval(PatienceMs);
    connect(&patience_, &QTimer::timeout, this, &PlayerRequests::sendNext);
}

void PlayerRequests::sendPlay(const QString &format, int sampleRate, int bitDepth, int channels, const QString &name)
{
    const QString url = playUrl(format, sampleRate, bitDepth, channels, name);
    send(url);
    logDebug() << "0SelectBluetooth():" << url;
}

void PlayerRequests::sendBTPropertyChange(const QString &type, bool adapter, bool connected, const QString &name,
                                          bool streaming)
{
    send(propertyChangeUrl(type, adapter, connected, name, streaming));
}

QString PlayerRequests::playUrl(const QString &format, int sampleRate, int bitDepth, int channels, const QString &name)
{
    const QString url = Player + QLatin1String("/Play?url=Capture:bluez:bluetooth:%1/%2/%3/%4&name=%5");
    return url.arg(format).arg(sampleRate).arg(bitDepth).arg(channels).arg(name);
}

QString PlayerRequests::propertyChangeUrl(const QString &type, bool adapter, bool connected, const QString &name,
                                          bool streaming)
{
    const QString url = Player + QLatin1String("/BTPropertyChange?type=") + type
        + QLatin1String("?adapter=%1&connected=%2&name=%3&streaming=%4");
    return url.arg(text(adapter)).arg(text(connected)).arg(name).arg(text(streaming));
}

void PlayerRequests::send(const QString &url)
{
    if (waiting_.size() == MaxWaiting)
        waiting_.dequeue();
    waiting_.enqueue(url);
    if (!latest_)
        sendNext();
}

void PlayerRequests::sendNext()
{
    latest_ = nullptr;
    if (waiting_.isEmpty() || underWay_ == MaxUnderWay)
        return;
    const QUrl url(waiting_.dequeue(), QUrl::TolerantMode);
    const QByteArray target = url.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority | QUrl::RemoveFragment);
    auto *request = new HttpGet(PlayerPort, target, this);
    connect(request, &HttpGet::finished, this, [=](const QString &error) { finished(request, url, error); });
    connect(request, &QObject::destroyed, this, [this] { requestGone(); });
    latest_ = request;
    ++underWay_;
    patience_.start();
}

void PlayerRequests::finished(const HttpGet *request, const QUrl &url, const QString &error)
{
    // Both managers write this line under the same name, so that a log reads alike on every board.
    if (error.isEmpty())
        logDebug() << "AdapterManager::finished" << url.toString() << "OK";
    else
        logDebug() << "AdapterManager::finished" << url.toString() << error;
    if (request == latest_) {
        patience_.stop();
        sendNext();
    }
}

void PlayerRequests::requestGone()
{
    --underWay_;
    if (!latest_)
        sendNext();
}
