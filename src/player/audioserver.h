#pragma once

#include "eventloop/filedescriptor.h"
#include "player/audioclient.h"

#include <QObject>
#include <QSocketNotifier>

#include <deque>
#include <memory>

/// The local audio socket "bluetooth", in the system's temporary directory, to which the player connects.
///
/// Connections wait here until nextClient() collects them, and are not read: one that sends anything cannot make the
/// process grow. Our own, for the memory that the network library takes (see HttpGet), and because its server stops
/// listening for good when a connection cannot be accepted.
class AudioServer : public QObject {
    Q_OBJECT
public:
    /// Connections kept waiting, as many as a local server keeps by default.
    static constexpr size_t WaitingLimit = 30;

    /// Replaces a stale socket of that name and listens. A failure is logged; the player finds nothing to connect to
    /// then, and all else goes on.
    explicit AudioServer(QObject *parent = nullptr);

    /// Takes in what the kernel still holds, so that a connection made a moment ago does not miss the packet at hand.
    void collect();

    /// Whether nextClient() would return one.
    bool hasNextClient() const { return !waiting_.empty(); }
    /// The connection that has waited longest, or null.
    std::unique_ptr<AudioClient> nextClient();

private:
    bool accept();

    FileDescriptor listener_;
    std::unique_ptr<QSocketNotifier> incoming_;
    std::deque<FileDescriptor> waiting_;
};
