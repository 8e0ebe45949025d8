// SPDX-License-Identifier: MIT
#pragma once

#include "realbluez/log.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <QList>
#include <QString>
#include <QTimer>
#include <QVariant>

namespace realbluez {

/// A phone: an A2DP source that uses an adapter of this machine's bluetoothd. Each step waits until it has completed,
/// logs the result, and returns false on failure.
class Phone : public QDBusVirtualObject {
public:
    /// Uses the adapter hci`number - 1`.
    explicit Phone(int number);

    /// Runs discovery until the speaker appears under its name. Allows for the time in which the speaker boots.
    bool discover();
    bool pair();
    /// Connects. The speaker must accept the first attempt, and a stream must be configured.
    bool connect();
    /// Connects, and retries while the speaker's bluetoothd is not running.
    bool connectWithRetries();
    /// Tries to connect once. Fails when a stream is configured.
    bool connectWithoutStream();
    /// Waits until the speaker's bluetoothd has restored a lost link and its stream.
    bool awaitReconnection();
    bool disconnect();
    bool awaitDisconnected();

    /// Starts to play a sound of `seconds` in real time. Every sound of a run is different.
    bool start(int seconds);
    /// Continues to play for `seconds`.
    bool keepPlaying(int seconds);
    /// Plays to the end of the sound and suspends the stream.
    bool finish();
    /// Waits until the speaker, or a lost link, has ended the stream.
    bool awaitStreamCut();

    /// Handles calls from bluetoothd, to the phone's agent (which accepts everything) and to its endpoint.
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override;
    QString introspect(const QString &path) const override;

private:
    QDBusMessage call(const QString &path, QLatin1String interface, const char *method,
                      const QVariantList &arguments = {});
    bool set(const QString &path, QLatin1String interface, const char *property, const QVariant &value);
    QVariant get(const QString &path, QLatin1String interface, const char *property);
    bool step(const QString &text, bool done);
    bool tryToConnect();
    bool isConnected();
    void sendDue();
    void endStream(bool complete);

    QString name_;
    QString adapter_;
    QString device_;
    QString own_;           ///< path of the object that bluetoothd calls
    QString transport_;     ///< empty while no stream is configured
    bool accepted_ = false; ///< the speaker accepted the last connection at least as far as its stream capabilities
    QList<QByteArray> packets_;
    int sent_ = 0;
    int descriptor_ = -1; ///< of the stream while it plays
    QTimer timer_;
    QElapsedTimer playing_;
};

} // namespace realbluez
