// SPDX-License-Identifier: MIT
#include "doctor/player.h"

#include "doctor/accounts.h"
#include "eventloop/filedescriptor.h"

#include <QDir>
#include <QFile>

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace doctor {

namespace {

constexpr quint16 Port = 11000;
// On the loopback interface a connect succeeds or fails at once, unless the player's accept queue is full.
constexpr int ConnectTimeoutMs = 500;

QString audioSocketPath()
{
    return QDir::tempPath() + "/bluetooth";
}

/// Returns the lines of a kernel table as lists of words, without the heading.
QList<QByteArrayList> tableOf(const char *path)
{
    QList<QByteArrayList> lines;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return lines;
    const QByteArrayList all = file.readAll().split('\n');
    for (const QByteArray &line : all.mid(1))
        lines << line.simplified().split(' ');
    return lines;
}

/// Returns the user of the process that listens on the player's port. Every user may read this from the kernel's
/// tables.
std::optional<uid_t> playerUser()
{
    constexpr int LocalAddress = 1;
    constexpr int State = 3;
    constexpr int User = 7;
    const QByteArray port = ':' + QByteArray::number(Port, 16).toUpper();
    for (const QByteArrayList &line : tableOf("/proc/net/tcp") + tableOf("/proc/net/tcp6")) {
        if (line.size() > User && line.at(LocalAddress).endsWith(port) && line.at(State) == "0A") // TCP_LISTEN
            return line.at(User).toUInt();
    }
    return {};
}

/// Connects to the player and closes the connection. Returns 0 or the error number.
int connectToPlayer()
{
    const FileDescriptor fd(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(Port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return 0;
    if (errno != EINPROGRESS)
        return errno;
    pollfd connecting{fd.get(), POLLOUT, 0};
    if (::poll(&connecting, 1, ConnectTimeoutMs) != 1)
        return ETIMEDOUT;
    int error = 0;
    socklen_t size = sizeof error;
    ::getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

Finding port(std::optional<uid_t> user)
{
    const QString about = "player";
    const QString place = QString("127.0.0.1:%1").arg(Port);
    if (const int error = connectToPlayer())
        return wrong(about, place + ": " + qt_error_string(error),
                     "Start the media player. It must listen there, see player.md");
    return ok(about, (user ? "the user " + userName(*user) : QString("a process")) + " listens on " + place);
}

Finding audioSocket(std::optional<uid_t> serviceUser, std::optional<uid_t> player)
{
    const QString about = "audio socket";
    const QString path = audioSocketPath();
    struct stat status = {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return wrong(about, path + ": " + qt_error_string(errno),
                     "Check that kado-bt is running and has the same /tmp (TMPDIR, PrivateTmp). "
                     "Look for \"No audio socket\" in its log");
    const QString seen = path + ", " + ownership(status);
    if (!S_ISSOCK(status.st_mode))
        return wrong(about, seen + ", is not a socket", "Remove it. kado-bt creates its socket within a second");
    if (serviceUser && status.st_uid != *serviceUser)
        return wrong(about, seen + ", does not belong to kado-bt's user " + userName(*serviceUser),
                     "Remove it. kado-bt creates its socket within a second");
    if (player && !hasAccess(*player, status, Access::Write))
        return wrong(about, seen + ": the player's user " + userName(*player) + " may not connect",
                     QString("Add that user to the group %1, and start kado-bt with the umask 0007").arg(ServiceUser));
    if (hasAccess(static_cast<uid_t>(-1), status, Access::Write))
        return note(about, seen + ": every user may connect", "Start kado-bt with the umask 0007");
    return ok(about, seen);
}

} // namespace

Findings checkPlayer(std::optional<uid_t> serviceUser)
{
    const std::optional<uid_t> player = playerUser();
    return {port(player), audioSocket(serviceUser, player)};
}

int audioClients()
{
    constexpr int Flags = 3;
    constexpr int Path = 7;
    const QByteArray listening = "00010000";
    int clients = 0;
    const QByteArray path = QFile::encodeName(audioSocketPath());
    for (const QByteArrayList &line : tableOf("/proc/net/unix")) {
        if (line.size() > Path && line.at(Path) == path && line.at(Flags) != listening)
            ++clients;
    }
    return clients;
}

} // namespace doctor
