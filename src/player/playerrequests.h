#pragma once

#include <QObject>
#include <QQueue>
#include <QString>
#include <QTimer>
#include <QUrl>

class HttpGet;

/// The requests to the speaker's media player: HTTP GET to its control service on the loopback interface, port 11000.
/// They are sent and forgotten; their replies are only logged. They reach the player in the order in which they were
/// made, so that what it hears last is how things are.
class PlayerRequests : public QObject {
    Q_OBJECT
public:
    explicit PlayerRequests(QObject *parent = nullptr);

    /// Asks the player to play the socket "bluetooth", and logs the request: format "pcm" or "aac", sampling rate in
    /// Hz, bits per sample, channels, the phone's name.
    void sendPlay(const QString &format, int sampleRate, int bitDepth, int channels, const QString &name);

    /// Tells the player the whole state of the Bluetooth side. `type` is "USB" for a BlueZ adapter and "CSR8675" for
    /// the module.
    void sendBTPropertyChange(const QString &type, bool adapter, bool connected, const QString &name, bool streaming);

    /// The two URLs. The values are put into the templates one after the other and as they are: a "%1" or "&" in a
    /// name takes effect, and the text is then read as a URL in tolerant mode.
    static QString playUrl(const QString &format, int sampleRate, int bitDepth, int channels, const QString &name);
    static QString propertyChangeUrl(const QString &type, bool adapter, bool connected, const QString &name,
                                     bool streaming);

private:
    void send(const QString &url);
    void sendNext();
    void requestGone();
    void finished(const HttpGet *request, const QUrl &url, const QString &error);

    QQueue<QString> waiting_;
    HttpGet *latest_ = nullptr; ///< null: nothing that the next request must wait for
    int underWay_ = 0;
    QTimer patience_;
};
