// SPDX-License-Identifier: MIT
#pragma once

#include <QDebug>
#include <QString>
#include <QtGlobal>

#include <optional>

/// What the command line says about the log.
struct LogSettings {
    int debugLevel = 0;       ///< messages of this level and below are shown; 0 is the most important, 9 traces all
    bool logToStderr = false; ///< standard error instead of syslog
};

/// Makes Qt's message functions write this daemon's log from here on.
///
/// A message text may begin with one digit, its level, which is not printed; a text without one has level 9. A shown
/// message becomes one line: "Warning: ", "Critical: ", "Fatal: " or, for a debug message, nothing, then the text. A
/// fatal message ends the process by abort(), shown or not. Failing writes are ignored.
void installLogOutput(const LogSettings &settings);

/// A debug message built from a text, which begins with the level, and items, in Qt's debug stream form: one blank
/// after each, the last one included, strings in double quotes with control characters escaped. It is handed to Qt's
/// message functions when it goes out of scope. Nothing is formatted of a message that is not shown. A message without
/// items is better given to qDebug() and its like as a format.
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
    std::optional<QDebug> stream_; ///< none: not shown
};

/// logDebug("0Device Connect:") << path;
inline LogStream logDebug(const char *text = "")
{
    return LogStream(text);
}
