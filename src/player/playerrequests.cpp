// SPDX-License-Identifier: MIT
#include "player/playerrequests.h"

#include "log/log.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>

namespace {

constexpr QLatin1String Player("http://127.0.0.1:11000");

// Concurrent requests may overtake each other. After this time a request has reached the player, with or without a
// reply.
constexpr int ReplyWaitMs = 250;

// A service on the same board replies within milliseconds. After this time no reply will come.
constexpr int TimeoutMs = 10'000;

// One fewer than the connections of QNetworkAccessManager to one host (6), so that each request is sent at once.
constexpr int MaxUnanswered = 5;

// Beyond this limit the oldest requests are dropped, because each notification has the whole state and an old request
// to play is obsolete.
constexpr int MaxQueued = 64;

} // namespace

PlayerRequests::PlayerRequests(QNetworkAccessManager &network, QObject *parent) : QObject(parent), network_(network)
{
    connect(&network_, &QNetworkAccessManager::finished, this, &PlayerRequests::finished);
    replyWait_.setSingleShot(true);
    replyWait_.setInterval(ReplyWaitMs);
    connect(&replyWait_, &QTimer::timeout, this, &PlayerRequests::sendNext);
}

void PlayerRequests::sendPlay(const QString &format, int sampleRate, int bitDepth, int channels, const QString &name)
{
    const QUrl url = playUrl(format, sampleRate, bitDepth, channels, name);
    send(url);
    logDebug("0SelectBluetooth():") << url.toString();
}

void PlayerRequests::sendBTPropertyChange(const QString &type, bool adapter, bool connected, const QString &name,
                                          bool streaming)
{
    send(propertyChangeUrl(type, adapter, connected, name, streaming));
}

QUrl PlayerRequests::playUrl(const QString &format, int sampleRate, int bitDepth, int channels, const QString &name)
{
    const QString url = Player + QLatin1String("/Play?url=Capture:bluez:bluetooth:%1/%2/%3/%4&name=%5");
    return QUrl(url.arg(format).arg(sampleRate).arg(bitDepth).arg(channels).arg(name), QUrl::TolerantMode);
}

QUrl PlayerRequests::propertyChangeUrl(const QString &type, bool adapter, bool connected, const QString &name,
                                       bool streaming)
{
    const QString url = Player + QLatin1String("/BTPropertyChange?type=") + type
        + QLatin1String("?adapter=%1&connected=%2&name=%3&streaming=%4");
    const auto text = [](bool value) { return QLatin1String(value ? "true" : "false"); };
    return QUrl(url.arg(text(adapter)).arg(text(connected)).arg(name).arg(text(streaming)), QUrl::TolerantMode);
}

void PlayerRequests::send(const QUrl &url)
{
    if (queue_.size() == MaxQueued)
        queue_.dequeue();
    queue_.enqueue(url);
    if (!replyWait_.isActive())
        sendNext();
}

void PlayerRequests::sendNext()
{
    if (queue_.isEmpty() || unanswered_ == MaxUnanswered)
        return;
    QNetworkRequest request(queue_.dequeue());
    // A reply must neither redirect the daemon nor store cookies.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    QNetworkReply *reply = network_.get(request);
    // Discard the body as it arrives. Not a transfer timeout, because it restarts with each byte of the body.
    connect(reply, &QIODevice::readyRead, reply, [reply] { reply->skip(reply->bytesAvailable()); });
    auto *timeout = new QTimer(reply);
    connect(timeout, &QTimer::timeout, reply, &QNetworkReply::abort);
    timeout->start(TimeoutMs);
    latest_ = reply;
    ++unanswered_;
    replyWait_.start();
}

void PlayerRequests::finished(QNetworkReply *reply)
{
    // Both managers log under this name, so that the log is the same on every board.
    if (reply->error() == QNetworkReply::NoError)
        logDebug("AdapterManager::finished") << reply->url().toString() << "OK";
    else
        logDebug("AdapterManager::finished") << reply->url().toString() << reply->errorString();
    reply->deleteLater();
    --unanswered_;
    if (reply == latest_)
        replyWait_.stop();
    if (!replyWait_.isActive())
        sendNext();
}
