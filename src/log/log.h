// SPDX-License-Identifier: MIT
#pragma once

#include <QDebug>
#include <QString>
#include <QtGlobal>

#include <optional>

/// The log settings of the command line.
struct LogSettings {
    int debugLevel = 0;       ///< messages up to this level are logged; 0 is the most important level, 9 the least
    bool logToStderr = false; ///< log to standard error instead of syslog
};

/// Makes Qt's message functions write to the daemon's log.
///
/// A message text may begin with one digit, its level, which is not printed. A text without a digit has level 9. Each
/// logged message becomes one line: the prefix "Warning: ", "Critical: " or "Fatal: " and the text. A debug message has
/// no prefix, and a message of another type has "Unknown: ". Control characters except tabs are escaped. A fatal
/// message calls abort(), whether or not its level is logged. Failed writes are ignored. SIGPIPE is ignored from now
/// on.
void installLogOutput(const LogSettings &settings);

/// A debug message built from a text, whose first digit is the level, and from streamed items.
///
/// Items have the form of Qt's debug stream. One blank follows each item, including the last one. Strings are in double
/// quotes, and control characters in them are escaped. The destructor passes the message to Qt's message functions. A
/// message that is not logged is not formatted. For a message without items, use qDebug() with a format instead.
class LogStream {
public:
    explicit LogStream(const char *text);
    ~LogStream();
    LogStream(const LogStream &) = delete;
    LogStream &operator=(const LogStream &) = delete;

    template <typename T>
    LogStream &operator<<(const T &item)
    {
        if (stream_)
            *stream_ << item;
        return *this;
    }

private:
    QString text_;
    std::optional<QDebug> stream_; ///< empty if the message is not logged
};

/// Returns a LogStream, as in logDebug("0Device Connect:") << path;
inline LogStream logDebug(const char *text = "")
{
    return LogStream(text);
}
