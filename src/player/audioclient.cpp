#include "player/audioclient.h"

#include "log/log.h"

#include <QTimer>

#include <cerrno>
#include <sys/socket.h>

namespace {

// The most that can be kept, BacklogLimit, is 24 s of 16-bit stereo at 44100 Hz to a player that reads in real time.
constexpr int FinishTimeoutMs = 30'000;

} // namespace

AudioClient::AudioClient(FileDescriptor socket)
    : socket_(std::move(socket)), writable_(socket_.get(), QSocketNotifier::Write)
{
    writable_.setEnabled(false);
    connect(&writable_, &QSocketNotifier::activated, this, &AudioClient::flushBacklog);
    open(QIODevice::WriteOnly | QIODevice::Unbuffered);
}

AudioClient::~AudioClient()
{
    reportDropped();
}

void AudioClient::finish(std::unique_ptr<AudioClient> client)
{
    if (client->backlogSize() == 0)
        return;
    // From here on the client owns itself: flushBacklog and the timer are its ends.
    AudioClient *self = client.release();
    self->finishing_ = true;
    QTimer::singleShot(FinishTimeoutMs, self, &QObject::deleteLater);
}

void AudioClient::watch()
{
    readable_ = std::make_unique<QSocketNotifier>(socket_.get(), QSocketNotifier::Read);
    connect(readable_.get(), &QSocketNotifier::activated, this, &AudioClient::discardInput);
}

qint64 AudioClient::readData(char *, qint64)
{
    return -1;
}

qint64 AudioClient::writeData(const char *data, qint64 size)
{
    if (!socket_.isValid())
        return -1;
    if (backlogSize() > 0) {
        if (droppedWrites_ == 0 && backlogSize() + size <= BacklogLimit) {
            keep(data, size);
        } else if (droppedWrites_++ == 0) {
            qDebug("0Audio client does not read, dropping packets");
        }
        return size;
    }
    const qint64 sent = send(data, size);
    if (sent < 0) {
        hangUp();
        return -1;
    }
    if (sent < size)
        keep(data + sent, size - sent);
    return size;
}

qint64 AudioClient::send(const char *data, qint64 size)
{
    if (size == 0)
        return 0;
    const ssize_t sent = ::send(socket_.get(), data, static_cast<size_t>(size), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0)
        return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? 0 : -1;
    return sent;
}

void AudioClient::keep(const char *data, qint64 size)
{
    backlog_.append(data, static_cast<int>(size));
    writable_.setEnabled(true);
}

void AudioClient::flushBacklog()
{
    const qint64 sent = send(backlog_.constData() + backlogSent_, backlogSize());
    if (sent < 0) {
        hangUp();
    } else {
        backlogSent_ += sent;
        // Moving the rest down only when it is the smaller part keeps the cost of a slow client linear.
        if (backlogSent_ > backlog_.size() / 2) {
            backlog_.remove(0, static_cast<int>(backlogSent_));
            backlogSent_ = 0;
        }
        if (backlogSize() > 0)
            return;
        reportDropped();
    }
    backlog_ = QByteArray();
    backlogSent_ = 0;
    writable_.setEnabled(false);
    if (finishing_)
        deleteLater();
}

void AudioClient::discardInput()
{
    char input[4096];
    const ssize_t size = ::recv(socket_.get(), input, sizeof input, MSG_DONTWAIT);
    if (size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR))
        hangUp();
}

void AudioClient::hangUp()
{
    writable_.setEnabled(false);
    backlog_ = QByteArray();
    backlogSent_ = 0;
    if (readable_) {
        readable_->setEnabled(false);
        Q_EMIT disconnected();
    }
    socket_.reset();
}

void AudioClient::reportDropped()
{
    if (droppedWrites_ > 0)
        logDebug() << "0Audio client was too slow, packets dropped:" << droppedWrites_;
    droppedWrites_ = 0;
}
