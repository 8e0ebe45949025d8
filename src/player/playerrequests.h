// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QQueue>
#include <QString>
#include <QTimer>
#include <QUrl>

class QNetworkAccessManager;
class QNetworkReply;

/// The requests to the speaker's media player, HTTP GET to its control service on the loopback interface, port 11000.
/// Replies are only logged. Requests reach the player in the order of the calls, so its last notification has the
/// current state. If a connection closes without a reply, QNetworkAccessManager repeats the request.
class PlayerRequests : public QObject {
    Q_OBJECT
public:
    /// Sends through `network`, which must outlive this object and must send no other requests.
    explicit PlayerRequests(QNetworkAccessManager &network, QObject *parent = nullptr);

    /// Asks the player to play the socket "bluetooth" and logs the request. `format` is "pcm" or "aac", `sampleRate` is
    /// in Hz, `bitDepth` in bits per sample, and `name` is the phone's name.
    void sendPlay(const QString &format, int sampleRate, int bitDepth, int channels, const QString &name);

    /// Notifies the player of the whole Bluetooth state. `type` is "USB" for a BlueZ adapter and "CSR8675" for the
    /// module.
    void sendBTPropertyChange(const QString &type, bool adapter, bool connected, const QString &name, bool streaming);

    /// Return the two URLs. The values replace the placeholders one after the other without escaping, so a "%1" or "&"
    /// in a name takes effect. The text is then parsed as a URL in tolerant mode.
    static QUrl playUrl(const QString &format, int sampleRate, int bitDepth, int channels, const QString &name);
    static QUrl propertyChangeUrl(const QString &type, bool adapter, bool connected, const QString &name,
                                  bool streaming);

private:
    void send(const QUrl &url);
    void sendNext();
    void finished(QNetworkReply *reply);

    QNetworkAccessManager &network_;
    QQueue<QUrl> queue_;
    const QNetworkReply *latest_ = nullptr; ///< may dangle, so only compare it
    int unanswered_ = 0;
    QTimer replyWait_; ///< started with each request; while it runs, the next request waits for the reply to this one
};
