// SPDX-License-Identifier: MIT
#include "bench/process.h"

#include "bench/fail.h"

#include <QFile>

#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace bench {

namespace {

constexpr std::int64_t NsPerSecond = 1'000'000'000;

std::int64_t read(clockid_t clock)
{
    timespec time{};
    if (::clock_gettime(clock, &time) != 0)
        fail(QStringLiteral("clock: %1").arg(QString::fromLocal8Bit(std::strerror(errno))));
    return time.tv_sec * NsPerSecond + time.tv_nsec;
}

/// Returns a null-terminated array for execve(). The strings must outlive it.
std::vector<char *> pointers(QList<QByteArray> &strings)
{
    std::vector<char *> pointers;
    for (QByteArray &string : strings)
        pointers.push_back(string.data());
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

std::int64_t nowNs()
{
    return read(CLOCK_MONOTONIC);
}

Process::Process(const QList<QByteArray> &command, const QList<QByteArray> &environment, const Streams &streams)
{
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    const int given[] = {streams.in, streams.out, streams.err};
    for (int fd = 0; fd < 3; ++fd) {
        if (given[fd] >= 0)
            ::posix_spawn_file_actions_adddup2(&actions, given[fd], fd);
        else
            ::posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", O_RDWR, 0);
    }

    QList<QByteArray> arguments = command;
    QList<QByteArray> variables = environment; // at the front, because getenv() finds the first of a name
    for (char **variable = ::environ; *variable; ++variable)
        variables.append(*variable);
    const std::vector<char *> argumentPointers = pointers(arguments);
    const std::vector<char *> variablePointers = pointers(variables);
    startedNs_ = nowNs();
    const int error = ::posix_spawnp(&pid_, argumentPointers.front(), &actions, nullptr, argumentPointers.data(),
                                     variablePointers.data());
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        fail(QStringLiteral("%1: %2").arg(QFile::decodeName(command.first()),
                                          QString::fromLocal8Bit(std::strerror(error))));
}

Process::~Process()
{
    if (pid_ > 0) {
        signal(SIGKILL);
        wait();
    }
}

std::int64_t Process::cpuNs() const
{
    clockid_t clock{};
    if (::clock_getcpuclockid(pid_, &clock) != 0)
        fail(QStringLiteral("process %1 has ended").arg(pid_));
    return read(clock);
}

int Process::memoryKib(const QByteArray &key) const
{
    QFile file(QStringLiteral("/proc/%1/smaps_rollup").arg(pid_));
    if (!file.open(QIODevice::ReadOnly))
        fail(file.fileName() + QStringLiteral(": ") + file.errorString());
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(key + ':'))
            return line.mid(key.size() + 1).trimmed().split(' ').first().toInt();
    }
    fail(file.fileName() + QStringLiteral(": no ") + QString::fromLatin1(key));
}

void Process::signal(int number) const
{
    ::kill(pid_, number);
}

void Process::wait()
{
    while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
}

} // namespace bench
