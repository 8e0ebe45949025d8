#include "player/audioserver.h"

#include <QDir>
#include <QFile>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

// Connections that the kernel keeps until the event loop takes them.
constexpr int KernelBacklog = 50;

// A descriptor becomes free with the end of something else that the daemon does: no need to look more often.
constexpr int RetryMs = 1000;

bool hungUp(const FileDescriptor &connection)
{
    pollfd poller{connection.get(), 0, 0};
    return ::poll(&poller, 1, 0) > 0 && (poller.revents & POLLHUP) != 0;
}

} // namespace

AudioServer::AudioServer(QObject *parent) : QObject(parent)
{
    const QByteArray path = QFile::encodeName(QDir::tempPath() + QLatin1String("/bluetooth"));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (static_cast<size_t>(path.size()) >= sizeof address.sun_path) {
        qWarning("0No audio socket %s: %s", path.constData(), std::strerror(ENAMETOOLONG));
        return;
    }
    std::copy(path.begin(), path.end(), address.sun_path);
    listener_ = FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    ::unlink(path.constData());
    if (::bind(listener_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0
        || ::listen(listener_.get(), KernelBacklog) != 0) {
        // In the sticky /tmp it takes the owner of what lies there, or root, to remove it.
        qWarning("0No audio socket %s: %s", path.constData(), std::strerror(errno));
        return;
    }
    incoming_ = std::make_unique<QSocketNotifier>(listener_.get(), QSocketNotifier::Read);
    connect(incoming_.get(), &QSocketNotifier::activated, this, &AudioServer::accept);
}

std::unique_ptr<AudioClient> AudioServer::nextClient()
{
    if (waiting_.empty())
        return nullptr;
    FileDescriptor connection = std::move(waiting_.front());
    waiting_.pop_front();
    return std::make_unique<AudioClient>(std::move(connection));
}

void AudioServer::collect()
{
    for (int i = 0; i < KernelBacklog && accept(); ++i) {
    }
}

bool AudioServer::accept()
{
    FileDescriptor connection(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection.isValid()) {
        // One that cannot be taken, for want of descriptors, is reported again and again.
        if (incoming_ && errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
            incoming_->setEnabled(false);
            QTimer::singleShot(RetryMs, incoming_.get(), [this] { incoming_->setEnabled(true); });
        }
        return false;
    }
    waiting_.push_back(std::move(connection));
    if (waiting_.size() <= WaitingLimit)
        return true;
    // A full queue would leave the next client outside. Those that left are of no use to anybody; after them the oldest
    // goes, as it would when the newest is adopted.
    waiting_.erase(std::remove_if(waiting_.begin(), waiting_.end(), hungUp), waiting_.end());
    if (waiting_.size() > WaitingLimit)
        waiting_.pop_front();
    return true;
}
