#include "log/logwriter.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <ctime>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

namespace {

// A reader that is merely busy comes back within that; the stream's socket holds several times as much audio.
constexpr int PatienceMs = 100;

/// "<14>Jul  9 12:00:00 kado-bt: ", in English whatever the locale (RFC 3164).
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

bool LogWriter::hasRoom(int fd)
{
    pollfd poller{fd, POLLOUT, 0};
    const bool room = ::poll(&poller, 1, stalled_ ? 0 : PatienceMs) > 0;
    stalled_ = !room;
    return room;
}

void LogWriter::toStderr(const QByteArray &line)
{
    const QByteArray text = line + '\n';
    // A pipe that has room takes this much at once.
    for (qsizetype sent = 0; sent < text.size() && hasRoom(STDERR_FILENO);) {
        const auto size = std::min<qsizetype>(text.size() - sent, PIPE_BUF);
        const ssize_t written = ::write(STDERR_FILENO, text.constData() + sent, static_cast<size_t>(size));
        if (written <= 0)
            return;
        sent += written;
    }
}

void LogWriter::toSyslog(const QByteArray &line)
{
    QByteArray text = syslogHeader() + line + '\n';
    // A system log that was started again is another socket.
    for (int attempt = 0; attempt < 2; ++attempt) {
        if ((!syslog_.isValid() && !connectToSyslog()) || !hasRoom(syslog_.get()))
            return;
        const auto size = static_cast<size_t>(text.size()) + (syslogIsStream_ ? 1 : 0); // a zero byte ends a record
        const ssize_t sent = ::send(syslog_.get(), text.constData(), size, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0 && errno == EAGAIN)
            return;
        if (sent != static_cast<ssize_t>(size))
            syslog_.reset(); // also when a part went: the next line must not continue it
        if (sent >= 0)
            return;
    }
}

bool LogWriter::connectToSyslog()
{
    constexpr sockaddr_un Address{AF_UNIX, "/dev/log"};
    for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
        FileDescriptor log(::socket(AF_UNIX, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        if (::connect(log.get(), reinterpret_cast<const sockaddr *>(&Address), sizeof Address) == 0) {
            syslog_ = std::move(log);
            syslogIsStream_ = type == SOCK_STREAM;
            return true;
        }
    }
    return false;
}
