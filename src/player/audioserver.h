// SPDX-License-Identifier: MIT
#pragma once

#include "player/audioclient.h"

#include <QLocalServer>
#include <QTimer>

#include <deque>
#include <memory>

/// The local audio socket "bluetooth" in the system's temporary directory, to which the player connects. Accepted
/// connections are queued for nextClient().
class AudioServer : public QLocalServer {
    Q_OBJECT
public:
    /// Limit of the queue, the same as QLocalServer's default. When the queue is full, the oldest connection is
    /// dropped.
    static constexpr size_t WaitingLimit = 30;

    /// Removes a stale socket of that name and listens. If that fails, logs a warning and retries every second.
    explicit AudioServer(QObject *parent = nullptr);

    /// Accepts pending connections now, so that a new client does not miss the current packet.
    void acceptPending();

    /// Returns whether the queue has connections. All of them may have hung up.
    bool hasWaiting() const { return !waiting_.empty(); }
    /// Returns the oldest queued connection, or null. Skips and drops connections that have hung up.
    std::unique_ptr<AudioClient> nextClient();

protected:
    void incomingConnection(quintptr socket) override;

private:
    void open();

    std::deque<std::unique_ptr<AudioClient>> waiting_;
    QTimer retry_;
};
