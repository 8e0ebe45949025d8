// SPDX-License-Identifier: MIT
#pragma once

#include "sim/control.h"
#include "sim/daemon.h"
#include "sim/player.h"

#include <QElapsedTimer>
#include <QString>

namespace sim {

/// The output of a demo, and its checks. It prints each event on standard output and keeps the first failed check.
class DemoReport {
public:
    /// Prints each line that the daemon logs, and each request that the player receives, from now on.
    DemoReport(Daemon &daemon, const Player &player);

    /// Prints one line: seconds since the start, actor, text. Prints pending log lines of the daemon first.
    void log(const char *who, const QString &text) const;

    /// Returns `condition`. When it is false, keeps `fault` as the failure of the demo, unless an earlier check failed.
    bool expect(bool condition, const QString &fault);

    /// Waits for the player's next request, and expects it to be `request` after percent-decoding.
    bool awaitRequest(const QString &request);

    /// Waits for a status notification of a present adapter of `type`, with these values.
    bool awaitStatus(const char *type, bool connected, const QString &name, bool streaming);

    /// Calls SelectBluetooth, and expects a /Play request for PCM of this rate from the phone of this name.
    bool selectBluetooth(Control &control, int sampleRate, const QString &phone);

    /// Expects that the player has received only the awaited requests.
    bool expectNoMoreRequests();

    bool failed() const { return !fault_.isEmpty(); }

    /// Prints the targets of all requests to the player.
    void listRequests() const;

    /// Prints the result. Returns the exit status.
    int finish() const;

private:
    void print(const char *who, const QString &text) const;

    Daemon &daemon_;
    const Player &player_;
    QObject receiver_; ///< its destruction disconnects the signals of daemon and player
    QElapsedTimer clock_;
    int awaitedRequests_ = 0;
    QString fault_;
};

} // namespace sim
