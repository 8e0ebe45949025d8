#include "player/playerrequests.h"

#include "core/log.h"

#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

namespace {

constexpr QLatin1String Player("http://127.0.0.1:11000");

// A player on the same board answers within milliseconds. One that has not finished by now would hold its connection
// for ever.
constexpr int ReplyTimeoutMs = 10'000;

// Requests that are under way together take connections of their own and may overtake each other. One that has had this
// long has arrived, whether or not the player has answered.
constexpr int PatienceMs = 250;

// Beyond six the network access manager lets requests wait in an order of its own.
constexpr int MaxUnderWay = 5;

// Each notification carries the whole state, and a wish to play this old has passed: the oldest are of no use.
constexpr int MaxWaiting = 64;

// Nobody reads what a player answers; more than this is not taken from it.
constexpr qint64 ReplyBufferBytes = 16 * 1024;

QString text(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

} // namespace

PlayerRequests::PlayerRequests(QNetworkAccessManager &network, QObject *parent) : QObject(parent), network_(network)
{
    // The player is on this very board, whatever proxy the environment names.
    network_.setProxy(QNetworkProxy::NoProxy);
    connect(&network_, &QNetworkAccessManager::finished, this, &PlayerRequests::finished);
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
    QNetworkRequest request(QUrl(waiting_.dequeue(), QUrl::TolerantMode));
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    latest_ = network_.get(request);
    latest_->setReadBufferSize(ReplyBufferBytes);
    QTimer::singleShot(ReplyTimeoutMs, latest_, &QNetworkReply::abort);
    ++underWay_;
    patience_.start();
}

void PlayerRequests::finished(QNetworkReply *reply)
{
    // Both managers write this line under the same name, so that a log reads alike on every board.
    const QString url = reply->url().toString();
    if (reply->error() == QNetworkReply::NoError)
        logDebug() << "AdapterManager::finished" << url << "OK";
    else
        logDebug() << "AdapterManager::finished" << url << reply->errorString();
    reply->deleteLater();
    --underWay_;
    if (reply == latest_) {
        patience_.stop();
        latest_ = nullptr;
    }
    if (!latest_)
        sendNext();
}
