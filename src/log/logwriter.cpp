// SPDX-License-Identifier: MIT
#include "log/logwriter.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <ctime>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <syslog.h>

namespace {

// Enough for a reader that is only busy. The stream's socket buffers several times as much audio meanwhile.
constexpr int SendTimeoutMs = 100;

/// Returns a header such as "<14>Jul  9 12:00:00 kado-bt: " (RFC 3164), in English in every locale.
QByteArray syslogHeader()
{
    constexpr const char *Months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    char text[64];
    std::snprintf(text, sizeof text, "<%d>%s %2d %02d:%02d:%02d ", LOG_USER | LOG_INFO, Months[local.tm_mon],
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return QByteArray(text).append(program_invocation_short_name).append(": ");
}

} // namespace

void LogWriter::toStderr(const QByteArray &line)
{
    const QByteArray text = line + '\n';
    for (qsizetype sent = 0; sent < text.size();) {
        pollfd poller{STDERR_FILENO, POLLOUT, 0};
        stalled_ = ::poll(&poller, 1, stalled_ ? 0 : SendTimeoutMs) <= 0;
        if (stalled_)
            return;
        // After POLLOUT a pipe accepts PIPE_BUF bytes without blocking.
        const auto size = std::min<qsizetype>(text.size() - sent, PIPE_BUF);
        const ssize_t written = ::write(STDERR_FILENO, text.constData() + sent, static_cast<size_t>(size));
        if (written <= 0)
            return;
        sent += written;
    }
}

void LogWriter::toSyslog(const QByteArray &line)
{
    constexpr sockaddr_un Address{AF_UNIX, "/dev/log"};
    if (!syslog_.isValid()) {
        syslog_ = FileDescriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        constexpr timeval Timeout{0, SendTimeoutMs * 1000};
        ::setsockopt(syslog_.get(), SOL_SOCKET, SO_SNDTIMEO, &Timeout, sizeof Timeout);
    }
    const QByteArray text = syslogHeader() + line + '\n';
    // sendto() with the address instead of connect(), because a restarted system log opens a new socket.
    const ssize_t sent = ::sendto(syslog_.get(), text.constData(), static_cast<size_t>(text.size()),
                                  stalled_ ? MSG_DONTWAIT : 0, reinterpret_cast<const sockaddr *>(&Address),
                                  sizeof Address);
    stalled_ = sent < 0 && errno == EAGAIN;
}
