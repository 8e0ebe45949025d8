// SPDX-License-Identifier: MIT
#pragma once

#include "eventloop/filedescriptor.h"

#include <QByteArray>

/// The writer of log lines. A stalled log reader blocks the first write for at most 100 ms. Later lines are dropped
/// without a wait until the reader reads again. A line whose write fails is lost.
class LogWriter {
public:
    /// Writes `line` and a line feed to standard error. A line longer than PIPE_BUF (4096 bytes) may be cut when the
    /// reader stalls.
    void toStderr(const QByteArray &line);

    /// Sends `line` to the datagram socket /dev/log with facility user, priority info and the program's name, in the
    /// format of syslog(3). Not syslog(3) itself, because it blocks for as long as the system log does not read.
    void toSyslog(const QByteArray &line);

private:
    FileDescriptor syslog_;
    bool stalled_ = false; ///< the last write timed out, so the next write does not wait
};
