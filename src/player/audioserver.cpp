#include "player/audioserver.h"

#include <algorithm>
#include <poll.h>

namespace {

bool hungUp(const FileDescriptor &connection)
{
    pollfd poller{connection.get(), 0, 0};
    return ::poll(&poller, 1, 0) > 0 && (poller.revents & POLLHUP) != 0;
}

} // namespace

void AudioServer::start()
{
    if (isListening())
        return;
    const QString name = QStringLiteral("bluetooth");
    removeServer(name);
    listen(name);
}

std::unique_ptr<AudioClient> AudioServer::nextClient()
{
    if (waiting_.empty())
        return nullptr;
    FileDescriptor connection = std::move(waiting_.front());
    waiting_.pop_front();
    return std::make_unique<AudioClient>(std::move(connection));
}

void AudioServer::incomingConnection(quintptr descriptor)
{
    waiting_.emplace_back(static_cast<int>(descriptor));
    if (waiting_.size() <= WaitingLimit)
        return;
    // A full queue would leave the next client outside. Those that left are of no use to anybody; after them the oldest
    // goes, as it would when the newest is adopted.
    waiting_.erase(std::remove_if(waiting_.begin(), waiting_.end(), hungUp), waiting_.end());
    if (waiting_.size() > WaitingLimit)
        waiting_.pop_front();
}
