// SPDX-License-Identifier: MIT
#include "log/log.h"

#include "log/logwriter.h"

#include <QLoggingCategory>

#include <csignal>
#include <cstdlib>
#include <mutex>

namespace {

LogSettings settings;
LogWriter writer;

const char *prefix(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return "";
    case QtWarningMsg:
        return "Warning: ";
    case QtCriticalMsg:
        return "Critical: ";
    case QtFatalMsg:
        return "Fatal: ";
    default:
        return "Unknown: ";
    }
}

bool isLevel(ushort character)
{
    return character >= '0' && character <= '9';
}

/// Returns the level of a message that begins with the character `first`.
int levelOf(ushort first)
{
    return isLevel(first) ? first - '0' : 9;
}

/// Escapes the control characters of `text` except tabs, so that a peer's string cannot forge a log line.
QString oneLine(const QString &text)
{
    QString result;
    for (const QChar character : text) {
        const ushort code = character.unicode();
        if ((code < 0x20 && code != '\t') || code == 0x7F)
            result += QStringLiteral("\\x%1").arg(code, 2, 16, QLatin1Char('0'));
        else
            result += character;
    }
    return result;
}

void print(QtMsgType type, const QString &message)
{
    if (message.isEmpty())
        return;
    const ushort first = message.at(0).unicode();
    if (levelOf(first) > settings.debugLevel)
        return;
    // QtDBus's thread logs as well.
    static std::mutex writing;
    const std::lock_guard<std::mutex> lock(writing);
    const QByteArray line = prefix(type) + oneLine(isLevel(first) ? message.mid(1) : message).toUtf8();
    if (settings.logToStderr)
        writer.toStderr(line);
    else
        writer.toSyslog(line);
}

void messageHandler(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    print(type, message);
    if (type == QtFatalMsg)
        std::abort();
}

} // namespace

void installLogOutput(const LogSettings &newSettings)
{
    settings = newSettings;
    // The daemon must survive a log reader that closes its pipe.
    std::signal(SIGPIPE, SIG_IGN);
    // Logging rules of the image or the environment could otherwise suppress debug messages before the handler.
    QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, true);
    qInstallMessageHandler(messageHandler);
}

LogStream::LogStream(const char *text)
{
    if (levelOf(static_cast<uchar>(*text)) > settings.debugLevel)
        return;
    stream_.emplace(&text_);
    if (*text != '\0')
        *stream_ << text;
}

LogStream::~LogStream()
{
    // nospace(), because Qt's stream otherwise removes the trailing blank.
    if (stream_)
        qDebug().nospace().noquote() << text_;
}
