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

/// A phone: an A2DP source that plays through an adapter of this machine's bluetoothd. Each of its steps waits until it
/// is done, says so in the log, and returns false when it failed.
class Phone : public QDBusVirtualObject {
public:
    /// The phone with the adapter hci`number - 1`.
    explicit Phone(int number);

    /// Looks for the speaker until it is there under its name, which may take until it has booted.
    bool discover();
    bool pair();
    /// Connects: the speaker has to let it in at once, and a stream gets configured.
    bool connect();
    /// The same, as often as it takes while the speaker's bluetoothd is away.
    bool connectAgainAndAgain();
    /// Tries to connect once, and must get no stream.
    bool connectInVain();
    /// Waits until the speaker's bluetoothd has brought back a link that was lost, with its stream.
    bool awaitReconnection();
    bool disconnect();
    bool awaitDisconnected();

    /// Starts to play a sound `seconds` long, unlike any other of this run, in real time.
    bool start(int seconds);
    /// Goes on playing for so long.
    bool keepPlaying(int seconds);
    /// Plays to the end of the sound and suspends the stream.
    bool finish();
    /// Waits until the stream is cut off.
    bool awaitCut();

    /// bluetoothd calls the phone: its agent, which says yes to everything, and its endpoint.
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
    void endStream(bool whole);

    QString name_;
    QString adapter_;
    QString device_;
    QString own_;        ///< the object that bluetoothd calls
    QString transport_;  ///< empty while no stream is configured
    bool letIn_ = false; ///< the speaker let the last connection in, as far as to tell what streams it takes
    QList<QByteArray> packets_;
    int sent_ = 0;
    int descriptor_ = -1; ///< of the stream, while it plays
    QTimer timer_;
    QElapsedTimer playing_;
};

} // namespace realbluez
