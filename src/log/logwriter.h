#pragma once

#include "eventloop/filedescriptor.h"

#include <QByteArray>

/// Writes log lines without ever being held up by who reads them: a reader that does not keep up is waited for once,
/// a moment, and from then on loses lines until it reads again. A line that cannot be written is lost.
class LogWriter {
public:
    /// `line` without its line feed. What is longer than a pipe's page may be cut when the reader stops.
    void toStderr(const QByteArray &line);

    /// A message of facility user and priority info under the program's name, as syslog(3) writes it. Our own, because
    /// the library's waits for a system log that has stopped reading for as long as that lasts.
    void toSyslog(const QByteArray &line);

private:
    bool hasRoom(int fd);
    bool connectToSyslog();

    FileDescriptor syslog_;
    bool syslogIsStream_ = false;
    bool stalled_ = false; ///< the reader was waited for in vain
};
