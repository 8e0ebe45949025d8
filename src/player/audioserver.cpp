// SPDX-License-Identifier: MIT
#include "player/audioserver.h"

#include <QDir>
#include <QSocketNotifier>

#include <algorithm>
#include <poll.h>
#include <sys/socket.h>

namespace {

constexpr QLatin1String Name("bluetooth");

// A descriptor becomes free with the end of something else that the daemon does: no need to look more often.
constexpr int RetryMs = 1000;

} // namespace

AudioServer::AudioServer(QObject *parent) : QLocalServer(parent)
{
    retry_.setSingleShot(true);
    retry_.setInterval(RetryMs);
    connect(&retry_, &QTimer::timeout, this, &AudioServer::open);
    open();
    // In the sticky /tmp it takes the owner of what lies there, or root, to remove it.
    if (!isListening())
        qWarning("0No audio socket %s/%s: %s", qPrintable(QDir::tempPath()), Name.data(), qPrintable(errorString()));
}

void AudioServer::open()
{
    close(); // a server that closed by itself calls itself listening still
    removeServer(Name);
    if (!listen(Name)) {
        retry_.start();
        return;
    }
    // When it cannot accept, for want of descriptors, it closes without another word than the end of its notifier.
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

void AudioServer::collect()
{
    pollfd listener{static_cast<int>(socketDescriptor()), POLLIN, 0};
    for (size_t i = 0; ::poll(&listener, 1, 0) > 0 && i < WaitingLimit; ++i) {
        const int connection = ::accept4(listener.fd, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) // the event loop's turn will show what follows from it
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
