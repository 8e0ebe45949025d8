#pragma once

#include "core/filedescriptor.h"
#include "player/audioclient.h"

#include <QLocalServer>

#include <deque>
#include <memory>

/// The local audio socket "bluetooth", in the system's temporary directory, to which the player connects.
///
/// Connections wait here until nextClient() collects them. They are kept as bare descriptors: a waiting connection that
/// sends anything is not read, so it cannot make the process grow.
class AudioServer : public QLocalServer {
    Q_OBJECT
public:
    /// Connections kept waiting, as many as a local server keeps by default.
    static constexpr size_t WaitingLimit = 30;

    using QLocalServer::QLocalServer;

    /// Replaces a stale socket of that name and listens; nothing if it listens already. A local server stops listening
    /// for good when a connection cannot be accepted, for want of descriptors for instance. A failure is not reported:
    /// the player finds nothing to connect to.
    void start();

    /// The connection that has waited longest, or null.
    std::unique_ptr<AudioClient> nextClient();

protected:
    void incomingConnection(quintptr descriptor) override;

private:
    std::deque<FileDescriptor> waiting_;
};
