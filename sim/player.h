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
    QString target;  ///< request target as it stood in the request line, undecoded
    QByteArray head; ///< the whole request up to and including the blank line
    qint64 ms = 0;   ///< since the player was made
};

/// The speaker's media player: its HTTP control service on 127.0.0.1:11000 and a client of the socket "bluetooth".
class Player : public QObject {
    Q_OBJECT
public:
    enum class Behaviour {
        Answer,      ///< 200 with an empty body; closes
        KeepOpen,    ///< the same, but does not close
        NoContent,   ///< 204, does not close
        Chunked,     ///< 200 with a body in chunks, does not close
        Endless,     ///< 200 with a body that never ends, a byte every 100 ms
        Late,        ///< the same as Answer, half a second later
        Refuse,      ///< 500
        NeverAnswer, ///< accepts, reads and stays silent
        Garbage,     ///< answers with bytes that are no HTTP
        CloseEarly,  ///< closes in the middle of its answer
    };

    explicit Player(QObject *parent = nullptr);
    ~Player() override;

    /// Starts the control service; false with a message on standard error when the port is taken. A player that does
    /// not serve is a player that is down.
    bool serve(quint16 port = 11000);
    void stopServing();
    void behave(Behaviour behaviour) { behaviour_ = behaviour; }
    /// Connects to "bluetooth" as soon as a /Play request arrives.
    void connectWhenTold(bool yes) { connectWhenTold_ = yes; }

    const QList<PlayerRequest> &requests() const { return requests_; }
    /// The targets alone.
    QStringList targets() const;
    void forgetRequests() { requests_.clear(); }

    /// Connects to the socket "bluetooth" as a new client, leaving an earlier one as it is hung up; false when nobody
    /// listens within 2 s.
    bool connectAudio();
    void hangUpAudio();
    bool audioConnected() const { return audio_ && audio_->state() == QLocalSocket::ConnectedState; }
    /// Stops or goes on reading the audio socket (reads nothing at all while paused).
    void pauseReading(bool paused);
    /// Everything heard since the last connectAudio.
    const QByteArray &heard() const { return heard_; }
    void forgetHeard() { heard_.clear(); }

Q_SIGNALS:
    void requested(const sim::PlayerRequest &request);

private:
    void serveConnection();
    void answer(QTcpSocket *socket);
    void readAudio();

    QTcpServer server_;
    Behaviour behaviour_ = Behaviour::Answer;
    bool connectWhenTold_ = false;
    bool paused_ = false;
    QList<PlayerRequest> requests_;
    std::unique_ptr<QLocalSocket> audio_;
    QByteArray heard_;
    QElapsedTimer clock_;
};

} // namespace sim
