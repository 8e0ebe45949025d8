// SPDX-License-Identifier: MIT
#pragma once

#include "sim/control.h"
#include "sim/daemon.h"
#include "sim/player.h"

#include <QElapsedTimer>
#include <QString>

namespace sim {

/// What a demo tells on standard output, and whether it came out as it should: the first thing that did not is the
/// story's fault.
class Story {
public:
    /// Tells each line that the daemon logs, and each request that the player gets.
    Story(Daemon &daemon, const Player &player);

    /// One line: seconds since the beginning, who, what. Lines that the daemon has logged before come first.
    void say(const char *who, const QString &text) const;

    /// Returns `asItShouldBe`; when that is false, `otherwise` is the fault.
    bool insist(bool asItShouldBe, const QString &otherwise);

    /// Waits for the player's next request, which has to be `request` once percent-decoded.
    bool awaitRequest(const QString &request);

    /// The same for a status notification of an adapter of `type` that is present.
    bool awaitStatus(const char *type, bool connected, const QString &name, bool streaming);

    /// Calls SelectBluetooth; the player has to be told to play PCM of this rate from the phone of this name.
    bool selectBluetooth(Control &control, int sampleRate, const QString &phone);

    /// The player was told nothing that was not awaited.
    bool insistOnNoMoreRequests();

    bool failed() const { return !fault_.isEmpty(); }

    /// Lists what the player was told.
    void listRequests() const;

    /// Says how it ended; returns the exit status.
    int end() const;

private:
    void print(const char *who, const QString &text) const;

    Daemon &daemon_;
    const Player &player_;
    QObject listener_; ///< to what daemon and player signal
    QElapsedTimer clock_;
    int awaitedRequests_ = 0;
    QString fault_;
};

} // namespace sim
