// SPDX-License-Identifier: MIT
#include "sim/player.h"

#include "sim/waiting.h"

#include <QHostAddress>
#include <QTimer>

#include <cstdio>
#include <utility>

namespace sim {

namespace {

constexpr int ConnectTimeoutMs = 2000;
// Longer than the daemon waits for an answer before it sends the next request.
constexpr int LateAnswerMs = 500;
constexpr int EndlessMs = 100;

struct Answer {
    const char *text;
    bool closes;
};

Answer answerOf(Player::Behaviour behaviour)
{
    const char *const ok = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
    switch (behaviour) {
    case Player::Behaviour::Answer:
    case Player::Behaviour::Late:
        return {ok, true};
    case Player::Behaviour::KeepOpen:
        return {ok, false};
    case Player::Behaviour::NoContent:
        return {"HTTP/1.1 204 No Content\r\n\r\n", false};
    case Player::Behaviour::Chunked:
        return {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nyes\r\n0\r\n\r\n", false};
    case Player::Behaviour::Endless:
        return {"HTTP/1.1 200 OK\r\n\r\n", false};
    case Player::Behaviour::Refuse:
        return {"HTTP/1.1 500 Internal Server Error\r\nContent-Length: 0\r\nConnection: close\r\n\r\n", true};
    case Player::Behaviour::NeverAnswer:
        return {"", false};
    case Player::Behaviour::Garbage:
        return {"\x16\x03\x01 no HTTP at all\r\n\r\n", true};
    case Player::Behaviour::CloseEarly:
        return {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf", true};
    }
    return {};
}

void send(QTcpSocket *socket, const Answer &answer)
{
    if (!socket->isOpen()) // closed before a late answer
        return;
    socket->write(answer.text);
    if (answer.closes)
        socket->disconnectFromHost();
}

} // namespace

Player::Player(QObject *parent) : QObject(parent)
{
    clock_.start();
    connect(&server_, &QTcpServer::newConnection, this, &Player::serveConnection);
}

Player::~Player()
{
    disconnectAudio();
}

bool Player::serve(quint16 port)
{
    if (server_.listen(QHostAddress::LocalHost, port))
        return true;
    std::fprintf(stderr, "The player cannot serve port %d: %s\n", port, qPrintable(server_.errorString()));
    return false;
}

void Player::stopServing()
{
    server_.close();
    const auto connections = server_.findChildren<QTcpSocket *>();
    for (QTcpSocket *connection : connections)
        connection->abort();
}

QStringList Player::targets() const
{
    QStringList targets;
    for (const PlayerRequest &request : requests_)
        targets.append(request.target);
    return targets;
}

bool Player::connectAudio()
{
    disconnectAudio();
    heard_.clear();
    paused_ = false;
    audio_ = std::make_unique<QLocalSocket>();
    connect(audio_.get(), &QLocalSocket::readyRead, this, &Player::readAudio);
    return waitFor(
        [this] {
            if (audio_->state() == QLocalSocket::UnconnectedState)
                audio_->connectToServer(QStringLiteral("bluetooth"), QIODevice::ReadOnly);
            return audioConnected();
        },
        ConnectTimeoutMs);
}

void Player::disconnectAudio()
{
    if (audio_) {
        audio_->disconnect(this);
        audio_->abort();
        audio_.release()->deleteLater(); // not at once, because one of its signals may have called this function
    }
}

void Player::pauseReading(bool paused)
{
    paused_ = paused;
    if (!audio_)
        return;
    // Limit the buffer to one byte, because QLocalSocket reads ahead until its buffer is full.
    audio_->setReadBufferSize(paused ? 1 : 0);
    if (!paused)
        readAudio();
}

void Player::serveConnection()
{
    while (QTcpSocket *socket = server_.nextPendingConnection()) {
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { answer(socket); });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        answer(socket);
    }
}

void Player::answer(QTcpSocket *socket)
{
    static const QByteArray BlankLine = QByteArrayLiteral("\r\n\r\n");
    QList<PlayerRequest> arrived;
    for (;;) {
        const auto end = socket->peek(socket->bytesAvailable()).indexOf(BlankLine);
        if (end < 0)
            break;
        PlayerRequest request;
        request.ms = clock_.elapsed();
        request.head = socket->read(end + BlankLine.size());
        const QList<QByteArray> requestLine = request.head.left(request.head.indexOf("\r\n")).split(' ');
        request.target = QString::fromUtf8(requestLine.value(1));
        arrived.append(request);

        const Answer answer = answerOf(behaviour_);
        if (behaviour_ == Behaviour::Late) {
            QTimer::singleShot(LateAnswerMs, socket, [=] { send(socket, answer); });
            continue;
        }
        send(socket, answer);
        if (behaviour_ == Behaviour::Endless) {
            auto *timer = new QTimer(socket);
            connect(timer, &QTimer::timeout, socket, [socket] { socket->write("x"); });
            timer->start(EndlessMs);
        }
    }

    // Do not use the socket below: a slot of requested() may call stopServing(), which closes it.
    requests_ += arrived;
    for (const PlayerRequest &request : std::as_const(arrived)) {
        if (connectOnPlay_ && request.target.startsWith(QLatin1String("/Play")))
            QTimer::singleShot(0, this, [this] { connectAudio(); });
        Q_EMIT requested(request);
    }
}

void Player::readAudio()
{
    if (paused_)
        return;
    heard_ += audio_->readAll();
}

} // namespace sim
