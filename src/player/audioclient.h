// SPDX-License-Identifier: MIT
#pragma once

#include "eventloop/filedescriptor.h"

#include <QIODevice>
#include <QSocketNotifier>

#include <memory>

/// The player's end of the local audio socket, as the output device of a codec.
///
/// A write goes to the socket in the same turn and never waits. What the client does not take at once is kept and sent
/// when it reads again. Past BacklogLimit whole writes are dropped until the client has taken all that was kept: it
/// then gets current audio, with no sample torn apart. Writes to a client that has gone fail and are forgotten. What
/// the client sends is read and forgotten. The end of the object ends the connection: the client still gets what the
/// kernel has taken, and not what was kept.
class AudioClient : public QIODevice {
    Q_OBJECT
public:
    /// Bytes kept for a slow client, 24 s of 16-bit stereo at 44100 Hz, and the most that one write may have.
    static constexpr qint64 BacklogLimit = 4 * 1024 * 1024;

    /// Takes over a connected stream socket.
    explicit AudioClient(FileDescriptor socket);
    ~AudioClient() override;

    /// Whether the client is still there, as far as the last write could tell.
    bool isConnected() const { return socket_.isValid(); }
    /// Whether it has closed the connection, looked at now.
    bool hasHungUp() const;

    bool isSequential() const override { return true; }

Q_SIGNALS:
    /// The client has left, or has ended its side of the connection.
    void disconnected();

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    [[gnu::hot]] qint64 writeData(const char *data, qint64 size) override;

private:
    /// Sends what the socket takes; returns the bytes taken, or -1 when the client has gone.
    [[gnu::hot]] qint64 send(const char *data, qint64 size);
    void keep(const char *data, qint64 size);
    void flushBacklog();
    void forgetBacklog();
    void discardInput();
    void hangUp();
    void reportDropped();

    FileDescriptor socket_;
    QSocketNotifier readable_;
    QSocketNotifier writable_;
    std::unique_ptr<char[]> backlog_; ///< a ring of BacklogLimit bytes while anything is kept
    qint64 backlogBegin_ = 0;
    qint64 backlogSize_ = 0;
    qint64 droppedWrites_ = 0;
};
