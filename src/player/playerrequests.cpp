#include "player/playerrequests.h"

#include "core/log.h"

#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

namespace {

// A player on the same board answers within milliseconds. One that never does would hold its connection, of which the
// network access manager has six, for ever.
constexpr int TransferTimeoutMs = 10'000;

// Requests that are under way together take connections of their own and may overtake each other. One that has had this
// long has arrived, whether or not the player has answered.
constexpr int PatienceMs = 250;

// Each notification carries the whole state: of more than this the oldest are of no use to anybody.
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
    return QStringLiteral("http://127.0.0.1:11000/Play?url=Capture:bluez:bluetooth:%1/%2/%3/%4&name=%5")
        .arg(format)
        .arg(sampleRate)
        .arg(bitDepth)
        .arg(channels)
        .arg(name);
}

QString PlayerRequests::propertyChangeUrl(const QString &type, bool adapter, bool connected, const QString &name,
                                          bool streaming)
{
    const QString url = QLatin1String("http://127.0.0.1:11000/BTPropertyChange?type=") + type
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
    if (waiting_.isEmpty())
        return;
    QNetworkRequest request(QUrl(waiting_.dequeue(), QUrl::TolerantMode));
    request.setTransferTimeout(TransferTimeoutMs);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    latest_ = network_.get(request);
    latest_->setReadBufferSize(ReplyBufferBytes);
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
    if (reply == latest_) {
        patience_.stop();
        sendNext();
    }
}
