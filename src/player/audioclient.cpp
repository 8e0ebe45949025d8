// SPDX-License-Identifier: MIT
#include "player/audioclient.h"

#include "log/log.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

AudioClient::AudioClient(FileDescriptor socket)
    : socket_(std::move(socket)), readable_(socket_.get(), QSocketNotifier::Read),
      writable_(socket_.get(), QSocketNotifier::Write)
{
    connect(&readable_, &QSocketNotifier::activated, this, &AudioClient::discardInput);
    writable_.setEnabled(false);
    connect(&writable_, &QSocketNotifier::activated, this, &AudioClient::flushBacklog);
    open(QIODevice::WriteOnly | QIODevice::Unbuffered);
}

AudioClient::~AudioClient()
{
    reportDropped();
}

bool AudioClient::hasHungUp() const
{
    pollfd poller{socket_.get(), 0, 0};
    return ::poll(&poller, 1, 0) > 0 && (poller.revents & POLLHUP) != 0;
}

qint64 AudioClient::readData(char *, qint64)
{
    return -1;
}

qint64 AudioClient::writeData(const char *data, qint64 size)
{
    if (!socket_.isValid() || size > BacklogLimit)
        return -1;
    if (backlogSize_ > 0) {
        if (droppedWrites_ == 0 && backlogSize_ + size <= BacklogLimit)
            appendToBacklog(data, size);
        else if (droppedWrites_++ == 0)
            qDebug("0Audio client does not read, dropping packets");
        return size;
    }
    const qint64 sent = send(data, size);
    if (sent < 0) {
        closeSocket();
        return -1;
    }
    if (sent < size)
        appendToBacklog(data + sent, size - sent);
    return size;
}

qint64 AudioClient::send(const char *data, qint64 size)
{
    const ssize_t sent = ::send(socket_.get(), data, static_cast<size_t>(size), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0)
        return errno == EAGAIN || errno == EINTR ? 0 : -1;
    return sent;
}

void AudioClient::appendToBacklog(const char *data, qint64 size)
{
    if (!backlog_)
        backlog_.reset(new char[BacklogLimit]);
    const qint64 end = (backlogBegin_ + backlogSize_) % BacklogLimit;
    const qint64 first = std::min(size, BacklogLimit - end);
    std::copy_n(data, first, backlog_.get() + end);
    std::copy_n(data + first, size - first, backlog_.get());
    backlogSize_ += size;
    writable_.setEnabled(true);
}

void AudioClient::flushBacklog()
{
    const qint64 sent = send(backlog_.get() + backlogBegin_, std::min(backlogSize_, BacklogLimit - backlogBegin_));
    if (sent < 0) {
        closeSocket();
        return;
    }
    backlogBegin_ = (backlogBegin_ + sent) % BacklogLimit;
    backlogSize_ -= sent;
    if (backlogSize_ == 0) {
        clearBacklog();
        reportDropped();
    }
}

void AudioClient::clearBacklog()
{
    writable_.setEnabled(false);
    backlog_.reset();
    backlogBegin_ = 0;
    backlogSize_ = 0;
}

void AudioClient::discardInput()
{
    char input[4096];
    const ssize_t size = ::recv(socket_.get(), input, sizeof input, MSG_DONTWAIT);
    if (size > 0 || (size < 0 && (errno == EAGAIN || errno == EINTR)))
        return;
    readable_.setEnabled(false); // keep the socket, because the client may still read
    Q_EMIT disconnected();
}

void AudioClient::closeSocket()
{
    clearBacklog();
    readable_.setEnabled(false);
    socket_.reset();
    Q_EMIT disconnected();
}

void AudioClient::reportDropped()
{
    if (droppedWrites_ > 0)
        logDebug("0Audio client was too slow, packets dropped:") << droppedWrites_;
    droppedWrites_ = 0;
}
