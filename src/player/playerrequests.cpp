// SPDX-License-Identifier: MIT
#include "player/playerrequests.h"

#include "log/log.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>

namespace {

constexpr QLatin1String Player("http://127.0.0.1:11000");

// Requests that are under way together may overtake each other. One that has had this long has arrived, whether or not
// the player has answered.
constexpr int PatienceMs = 250;

// A service on the same board answers within milliseconds; one that has not by now never will.
constexpr int TimeoutMs = 10'000;

// One less than QNetworkAccessManager's connections to a player: a request that is sent leaves at once.
constexpr int MaxUnanswered = 5;

// Each notification carries the whole state, and a wish to play this old has passed: the oldest are of no use.
constexpr int MaxWaiting = 64;

} // namespace

PlayerRequests::PlayerRequests(QNetworkAccessManager &network, QObject *parent) : QObject(parent), network_(network)
{
    connect(&network_, &QNetworkAccessManager::finished, this, &PlayerRequests::finished);
    patience_.setSingleShot(true);
    patience_.setInterval(PatienceMs);
    connect(&patience_, &QTimer::timeout, this, &PlayerRequests::sendNext);
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
    if (waiting_.size() == MaxWaiting)
        waiting_.dequeue();
    waiting_.enqueue(url);
    if (!patience_.isActive())
        sendNext();
}

void PlayerRequests::sendNext()
{
    if (waiting_.isEmpty() || unanswered_ == MaxUnanswered)
        return;
    QNetworkRequest request(waiting_.dequeue());
    // Neither may an answer lead elsewhere, nor its cookies be kept.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    QNetworkReply *reply = network_.get(request);
    // What follows the status is forgotten as it comes. A transfer timeout would begin anew with each byte of it.
    connect(reply, &QIODevice::readyRead, reply, [reply] { reply->skip(reply->bytesAvailable()); });
    auto *timeout = new QTimer(reply);
    connect(timeout, &QTimer::timeout, reply, &QNetworkReply::abort);
    timeout->start(TimeoutMs);
    latest_ = reply;
    ++unanswered_;
    patience_.start();
}

void PlayerRequests::finished(QNetworkReply *reply)
{
    // Both managers write this line under the same name, so that a log reads alike on every board.
    if (reply->error() == QNetworkReply::NoError)
        logDebug("AdapterManager::finished") << reply->url().toString() << "OK";
    else
        logDebug("AdapterManager::finished") << reply->url().toString() << reply->errorString();
    reply->deleteLater();
    --unanswered_;
    if (reply == latest_)
        patience_.stop();
    if (!patience_.isActive())
        sendNext();
}
