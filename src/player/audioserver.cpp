// SPDX-License-Identifier: MIT
#include "player/audioserver.h"

#include <QDir>
#include <QSocketNotifier>

#include <algorithm>
#include <poll.h>
#include <sys/socket.h>

namespace {

constexpr QLatin1String Name("bluetooth");

// Once a second is enough, because a descriptor becomes free only when other work of the daemon ends.
constexpr int RetryMs = 1000;

} // namespace

AudioServer::AudioServer(QObject *parent) : QLocalServer(parent)
{
    retry_.setSingleShot(true);
    retry_.setInterval(RetryMs);
    connect(&retry_, &QTimer::timeout, this, &AudioServer::open);
    open();
    // In a sticky /tmp, only root or the owner of a stale socket can remove it.
    if (!isListening())
        qWarning("0No audio socket %s/%s: %s", qPrintable(QDir::tempPath()), Name.data(), qPrintable(errorString()));
}

void AudioServer::open()
{
    close(); // after a failed accept, isListening() is still true
    removeServer(Name);
    if (!listen(Name)) {
        retry_.start();
        return;
    }
    // When QLocalServer cannot accept because the process is out of descriptors, it closes its socket. The destruction
    // of its notifier is the only sign.
    connect(findChild<QSocketNotifier *>(), &QObject::destroyed, &retry_, qOverload<>(&QTimer::start));
}

std::unique_ptr<AudioClient> AudioServer::nextClient()
{
    while (!waiting_.empty()) {
        std::unique_ptr<AudioClient> client = std::move(waiting_.front());
        waiting_.pop_front();
        if (!client->hasHungUp())
            return client;
    }
    return nullptr;
}

void AudioServer::acceptPending()
{
    pollfd listener{static_cast<int>(socketDescriptor()), POLLIN, 0};
    for (size_t i = 0; ::poll(&listener, 1, 0) > 0 && i < WaitingLimit; ++i) {
        const int connection = ::accept4(listener.fd, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) // QLocalServer meets the same error in the event loop and handles it
            return;
        incomingConnection(static_cast<quintptr>(connection));
    }
}

void AudioServer::incomingConnection(quintptr socket)
{
    waiting_.push_back(std::make_unique<AudioClient>(FileDescriptor(static_cast<int>(socket))));
    if (waiting_.size() <= WaitingLimit)
        return;
    const auto gone = std::remove_if(waiting_.begin(), waiting_.end(),
                                     [](const std::unique_ptr<AudioClient> &client) { return client->hasHungUp(); });
    waiting_.erase(gone, waiting_.end());
    if (waiting_.size() > WaitingLimit)
        waiting_.pop_front();
}
