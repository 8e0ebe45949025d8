// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QLocalSocket>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>

#include <memory>

namespace sim {

/// A request that the player received.
struct PlayerRequest {
    QString target;  ///< request target of the request line, not percent-decoded
    QByteArray head; ///< the request up to and including the blank line
    qint64 ms = 0;   ///< since the player was created
};

/// The speaker's media player: an HTTP control service on 127.0.0.1:11000 and a client of the socket "bluetooth".
class Player : public QObject {
    Q_OBJECT
public:
    enum class Behaviour {
        Answer,      ///< 200 with an empty body; closes
        KeepOpen,    ///< 200 with an empty body; does not close
        NoContent,   ///< 204; does not close
        Chunked,     ///< 200 with a chunked body; does not close
        Endless,     ///< 200 with an endless body, one byte every 100 ms
        Late,        ///< like Answer, half a second later
        Refuse,      ///< 500; closes
        NeverAnswer, ///< accepts and reads, but never answers
        Garbage,     ///< answers with bytes that are not HTTP; closes
        CloseEarly,  ///< closes in the middle of the answer
    };

    explicit Player(QObject *parent = nullptr);
    ~Player() override;

    /// Starts the HTTP service. Prints a message and returns false when it cannot listen on the port.
    bool serve(quint16 port = 11000);
    /// Stops listening and closes all HTTP connections, as when the player is down.
    void stopServing();
    void setBehaviour(Behaviour behaviour) { behaviour_ = behaviour; }
    /// Sets whether each /Play request makes the player connect to "bluetooth".
    void connectOnPlay(bool yes) { connectOnPlay_ = yes; }

    const QList<PlayerRequest> &requests() const { return requests_; }
    /// Returns the targets of all requests.
    QStringList targets() const;
    void clearRequests() { requests_.clear(); }

    /// Disconnects an earlier client and connects a new one to the socket "bluetooth". Returns false when the
    /// connection does not succeed within 2 s.
    bool connectAudio();
    void disconnectAudio();
    bool audioConnected() const { return audio_ && audio_->state() == QLocalSocket::ConnectedState; }
    /// Pauses or resumes reading of the audio socket.
    void pauseReading(bool paused);
    /// Returns the audio received since the last connectAudio() or clearHeard().
    const QByteArray &heard() const { return heard_; }
    void clearHeard() { heard_.clear(); }

Q_SIGNALS:
    void requested(const sim::PlayerRequest &request);

private:
    void serveConnection();
    void answer(QTcpSocket *socket);
    void readAudio();

    QTcpServer server_;
    Behaviour behaviour_ = Behaviour::Answer;
    bool connectOnPlay_ = false;
    bool paused_ = false;
    QList<PlayerRequest> requests_;
    std::unique_ptr<QLocalSocket> audio_;
    QByteArray heard_;
    QElapsedTimer clock_;
};

} // namespace sim
