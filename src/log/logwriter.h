// SPDX-License-Identifier: MIT
#pragma once

#include "eventloop/filedescriptor.h"

#include <QByteArray>

/// Writes log lines without ever being held up by who reads them: a reader that does not keep up is waited for once,
/// a moment, and from then on loses lines until it reads again. A line that cannot be written is lost.
class LogWriter {
public:
    /// `line` without its line feed. What is longer than a pipe's page may be cut when the reader stops.
    void toStderr(const QByteArray &line);

    /// A message of facility user and priority info under the program's name, as syslog(3) writes it to a system log
    /// that takes datagrams. Our own, because syslog(3) waits for one that has stopped reading for as long as that
    /// lasts.
    void toSyslog(const QByteArray &line);

private:
    FileDescriptor syslog_;
    bool stalled_ = false; ///< the reader was waited for in vain
};
