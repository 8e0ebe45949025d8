// SPDX-License-Identifier: MIT
#pragma once

#include "player/audioclient.h"

#include <QLocalServer>
#include <QTimer>

#include <deque>
#include <memory>

/// The local audio socket "bluetooth", in the system's temporary directory, to which the player connects. Connections
/// wait here until nextClient() hands them out.
class AudioServer : public QLocalServer {
    Q_OBJECT
public:
    /// Connections kept waiting, as many as a local server keeps by default. The oldest makes room.
    static constexpr size_t WaitingLimit = 30;

    /// Replaces a stale socket of that name and listens. A failure is logged, and tried again every second.
    explicit AudioServer(QObject *parent = nullptr);

    /// Takes in what the kernel still holds, so that a connection made a moment ago does not miss the packet at hand.
    void collect();

    /// Whether there is any for nextClient() to look at.
    bool hasWaiting() const { return !waiting_.empty(); }
    /// The connection that has waited longest, or null; those that have hung up are passed over.
    std::unique_ptr<AudioClient> nextClient();

protected:
    void incomingConnection(quintptr socket) override;

private:
    void open();

    std::deque<std::unique_ptr<AudioClient>> waiting_;
    QTimer retry_;
};
