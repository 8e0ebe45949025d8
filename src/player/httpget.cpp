#include "player/httpget.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>

namespace {

// A service on the same board answers within milliseconds; one that has not by now never will.
constexpr int TimeoutMs = 10'000;

// For the rest of an answer, and for a service that does not close the connection although it was asked to.
constexpr int RestMs = 1000;

constexpr int MaxStatusLine = 1024;

/// Begins to connect; 0, or the error that there was at once. Any later one is told by the socket once it is writable.
int connectToLoopback(int fd, quint16 port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int result = ::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    return result == 0 || errno == EINPROGRESS ? 0 : errno;
}

/// The error that a status line stands for; empty for none.
QString errorOf(const QByteArray &statusLine)
{
    const QList<QByteArray> words = statusLine.split(' ');
    const int status = words.value(1).toInt();
    if (!statusLine.startsWith("HTTP/1.") || status < 100)
        return QStringLiteral("Not an HTTP answer");
    return status < 400 ? QString() : QStringLiteral("Answered with status %1").arg(status);
}

} // namespace

HttpGet::HttpGet(quint16 port, const QByteArray &target, QObject *parent)
    : QObject(parent), request_("GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" + QByteArray::number(port)
                                + "\r\nConnection: close\r\n\r\n"),
      socket_(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))
{
    timeout_.setSingleShot(true);
    const int error = connectToLoopback(socket_.get(), port);
    const QString reason = error == 0 ? QStringLiteral("No answer") : qt_error_string(error);
    connect(&timeout_, &QTimer::timeout, this, [this, reason] {
        finish(reason);
        leave();
    });
    if (error != 0) {
        timeout_.start(0);
        return;
    }
    timeout_.start(TimeoutMs);
    writable_ = std::make_unique<QSocketNotifier>(socket_.get(), QSocketNotifier::Write);
    connect(writable_.get(), &QSocketNotifier::activated, this, &HttpGet::sendRequest);
    readable_ = std::make_unique<QSocketNotifier>(socket_.get(), QSocketNotifier::Read);
    readable_->setEnabled(false);
    connect(readable_.get(), &QSocketNotifier::activated, this, &HttpGet::readAnswer);
}

void HttpGet::sendRequest()
{
    int error = 0;
    socklen_t size = sizeof error;
    ::getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    ssize_t sent = 0;
    if (error == 0) {
        sent = ::send(socket_.get(), request_.constData(), static_cast<size_t>(request_.size()), MSG_NOSIGNAL);
        if (sent < 0 && errno != EAGAIN && errno != EINTR)
            error = errno;
    }
    if (error != 0) {
        finish(qt_error_string(error));
        leave();
        return;
    }
    // A name may be longer than what the socket takes at once.
    if (sent > 0)
        request_.remove(0, static_cast<int>(sent));
    if (!request_.isEmpty())
        return;
    writable_->setEnabled(false);
    readable_->setEnabled(true);
}

void HttpGet::readAnswer()
{
    char buffer[MaxStatusLine];
    const ssize_t size = ::recv(socket_.get(), buffer, sizeof buffer, 0);
    if (size < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (!finished_ && size > 0) {
        answer_.append(buffer, static_cast<int>(size));
        const auto end = answer_.indexOf("\r\n");
        if (end >= 0)
            finish(errorOf(answer_.left(end)));
        else if (answer_.size() > MaxStatusLine)
            finish(QStringLiteral("Not an HTTP answer"));
    }
    if (size <= 0) {
        finish(QStringLiteral("Connection closed"));
        leave();
    }
}

void HttpGet::finish(const QString &error)
{
    if (finished_)
        return;
    finished_ = true;
    answer_.clear();
    timeout_.start(RestMs);
    Q_EMIT finished(error);
}

void HttpGet::leave()
{
    timeout_.stop();
    if (writable_) {
        writable_->setEnabled(false);
        readable_->setEnabled(false);
    }
    deleteLater();
}
