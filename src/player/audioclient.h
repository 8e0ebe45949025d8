// SPDX-License-Identifier: MIT
#pragma once

#include "eventloop/filedescriptor.h"

#include <QIODevice>
#include <QSocketNotifier>

#include <memory>

/// A connection from the player to the local audio socket. It is the output device of a codec.
///
/// A write goes to the socket at once and never blocks. Bytes that the socket refuses go to a backlog and are sent when
/// the client reads again. When the backlog is full, whole writes are dropped until the client has emptied it, so the
/// client resumes with current audio on a sample boundary. A write after the client has gone fails. Input from the
/// client is discarded. The destructor closes the connection. The client still receives the bytes that the kernel has
/// accepted, but not the backlog.
class AudioClient : public QIODevice {
    Q_OBJECT
public:
    /// Bytes of the backlog, 24 s of 16-bit stereo at 44100 Hz. Also the limit of one write.
    static constexpr qint64 BacklogLimit = 4 * 1024 * 1024;

    /// Takes ownership of a connected stream socket.
    explicit AudioClient(FileDescriptor socket);
    ~AudioClient() override;

    /// Returns false once a send has failed because the client has gone.
    bool isConnected() const { return socket_.isValid(); }
    /// Asks the kernel whether the client has closed the connection.
    bool hasHungUp() const;

    bool isSequential() const override { return true; }

Q_SIGNALS:
    /// Emitted when the client has gone or has shut down its sending side.
    void disconnected();

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    [[gnu::hot]] qint64 writeData(const char *data, qint64 size) override;

private:
    /// Sends without blocking. Returns the number of bytes that the socket accepted, or -1 if the client has gone.
    [[gnu::hot]] qint64 send(const char *data, qint64 size);
    void appendToBacklog(const char *data, qint64 size);
    void flushBacklog();
    void clearBacklog();
    void discardInput();
    void closeSocket();
    void reportDropped();

    FileDescriptor socket_;
    QSocketNotifier readable_;
    QSocketNotifier writable_;
    std::unique_ptr<char[]> backlog_; ///< ring buffer of BacklogLimit bytes; null while the backlog is empty
    qint64 backlogBegin_ = 0;
    qint64 backlogSize_ = 0;
    qint64 droppedWrites_ = 0;
};
