// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QQueue>
#include <QString>
#include <QTimer>
#include <QUrl>

class QNetworkAccessManager;
class QNetworkReply;

/// The requests to the speaker's media player: HTTP GET to its control service on the loopback interface, port 11000.
/// They are sent and forgotten; their replies are only logged. They reach the player in the order in which they were
/// made, so that what it hears last is how things are; QNetworkAccessManager repeats one that was not answered when its
/// connection closes.
class PlayerRequests : public QObject {
    Q_OBJECT
public:
    /// Sends by `network`, which outlives it and sends nothing else.
    explicit PlayerRequests(QNetworkAccessManager &network, QObject *parent = nullptr);

    /// Asks the player to play the socket "bluetooth", and logs the request: format "pcm" or "aac", sampling rate in
    /// Hz, bits per sample, channels, the phone's name.
    void sendPlay(const QString &format, int sampleRate, int bitDepth, int channels, const QString &name);

    /// Tells the player the whole state of the Bluetooth side. `type` is "USB" for a BlueZ adapter and "CSR8675" for
    /// the module.
    void sendBTPropertyChange(const QString &type, bool adapter, bool connected, const QString &name, bool streaming);

    /// The two URLs. The values are put into the templates one after the other and as they are: a "%1" or "&" in a
    /// name takes effect, and the text is then read as a URL in tolerant mode.
    static QUrl playUrl(const QString &format, int sampleRate, int bitDepth, int channels, const QString &name);
    static QUrl propertyChangeUrl(const QString &type, bool adapter, bool connected, const QString &name,
                                  bool streaming);

private:
    void send(const QUrl &url);
    void sendNext();
    void finished(QNetworkReply *reply);

    QNetworkAccessManager &network_;
    QQueue<QUrl> waiting_;
    const QNetworkReply *latest_ = nullptr; ///< only compared with others
    int unanswered_ = 0;
    QTimer patience_; ///< with the latest request: it runs while the next one has to wait for its answer
};
