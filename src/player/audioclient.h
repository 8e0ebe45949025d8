#pragma once

#include "eventloop/filedescriptor.h"

#include <QByteArray>
#include <QIODevice>
#include <QSocketNotifier>

#include <memory>

/// The player's end of the local audio socket, as the output device of a codec.
///
/// A write goes to the socket in the same turn and never waits. What the client does not take at once is kept and sent
/// when it reads again. Past BacklogLimit whole writes are dropped until the client has taken all that was kept: it
/// then gets current audio, with no sample torn apart. Writes to a client that has gone fail and are forgotten.
class AudioClient : public QIODevice {
    Q_OBJECT
public:
    /// Bytes kept for a slow client: 24 s of 16-bit stereo at 44100 Hz.
    static constexpr qint64 BacklogLimit = 4 * 1024 * 1024;

    /// Takes over a connected stream socket.
    explicit AudioClient(FileDescriptor socket);
    ~AudioClient() override;

    /// Ends with the client: at once when it has taken everything, otherwise as soon as it has, and after 30 s in any
    /// case. The audio that was already written is thus not lost with the end of a stream.
    static void finish(std::unique_ptr<AudioClient> client);

    /// Reports, by disconnected(), when the client leaves. What it sends is read and forgotten.
    void watch();

    /// Whether the client is still there, as far as the last write could tell.
    bool isConnected() const { return socket_.isValid(); }

    bool isSequential() const override { return true; }

Q_SIGNALS:
    /// The client has left. Only of a watched client.
    void disconnected();

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    [[gnu::hot]] qint64 writeData(const char *data, qint64 size) override;

private:
    /// Sends what the socket takes; returns the bytes taken, or -1 when the client has gone.
    [[gnu::hot]] qint64 send(const char *data, qint64 size);
    void keep(const char *data, qint64 size);
    void flushBacklog();
    void discardInput();
    void hangUp();
    void reportDropped();
    qint64 backlogSize() const { return backlog_.size() - backlogSent_; }

    FileDescriptor socket_;
    QSocketNotifier writable_;
    std::unique_ptr<QSocketNotifier> readable_; ///< of a watched client
    QByteArray backlog_;
    qint64 backlogSent_ = 0; ///< bytes at the start of backlog_ that are gone already
    qint64 droppedWrites_ = 0;
    bool finishing_ = false; ///< the client owns itself
};
