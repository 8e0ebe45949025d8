// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>

#include <cstdint>
#include <sys/types.h>

namespace bench {

/// CLOCK_MONOTONIC.
std::int64_t nowNs();

/// A child process, ended with SIGKILL at the latest with this object. It is started by posix_spawn(), so the time from
/// startedNs() to its first instruction does not depend on the size of this process.
class Process {
public:
    /// Starts `command` (its first word with its path or found in PATH) with `environment` ("NAME=VALUE") added to this
    /// process's. -1 is /dev/null. A command that cannot be started ends the program.
    struct Streams {
        int in = -1;
        int out = -1;
        int err = -1;
    };
    explicit Process(const QList<QByteArray> &command, const QList<QByteArray> &environment = {},
                     const Streams &streams = {-1, -1, -1});
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    pid_t pid() const { return pid_; }
    std::int64_t startedNs() const { return startedNs_; }
    /// CPU time of all its threads so far.
    std::int64_t cpuNs() const;
    /// The line `key` of /proc/PID/smaps_rollup, for instance "Rss".
    int memoryKib(const QByteArray &key) const;
    void signal(int number) const;
    /// Waits for its end.
    void wait();

private:
    pid_t pid_ = -1;
    std::int64_t startedNs_ = 0;
};

} // namespace bench
