// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>

#include <cstdint>
#include <sys/types.h>

namespace bench {

/// Reads CLOCK_MONOTONIC.
std::int64_t nowNs();

/// A child process. The destructor ends it with SIGKILL. Uses posix_spawn(), so that the time from startedNs() to the
/// child's first instruction does not depend on the size of this process.
class Process {
public:
    /// Descriptors of the child's standard streams. -1: /dev/null.
    struct Streams {
        int in = -1;
        int out = -1;
        int err = -1;
    };
    /// Starts `command`, whose first word is a path or a name in PATH. Adds `environment` ("NAME=VALUE") to this
    /// process's environment. Ends the program when the command cannot be started.
    explicit Process(const QList<QByteArray> &command, const QList<QByteArray> &environment = {},
                     const Streams &streams = {-1, -1, -1});
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    pid_t pid() const { return pid_; }
    std::int64_t startedNs() const { return startedNs_; }
    /// Returns the CPU time of all its threads so far.
    std::int64_t cpuNs() const;
    /// Returns the value `key` of /proc/PID/smaps_rollup, for example "Rss".
    int memoryKib(const QByteArray &key) const;
    void signal(int number) const;
    /// Waits until the process has ended.
    void wait();

private:
    pid_t pid_ = -1;
    std::int64_t startedNs_ = 0;
};

} // namespace bench
