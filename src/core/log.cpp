#include "core/log.h"

#include <QLoggingCategory>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <syslog.h>

namespace {

LogSettings settings;

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

void print(QtMsgType type, const QString &message)
{
    if (message.isEmpty())
        return;
    const ushort first = message.at(0).unicode();
    const bool hasLevel = first >= '0' && first <= '9';
    const int level = hasLevel ? first - '0' : 9;
    if (level > settings.debugLevel)
        return;
    const QByteArray text = (hasLevel ? message.mid(1) : message).toUtf8();
    if (settings.logToStderr)
        std::fprintf(stderr, "%s%s\n", prefix(type), text.constData());
    else
        syslog(LOG_INFO, "%s%s\n", prefix(type), text.constData());
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
    // A log reader that goes away must not take the daemon with it.
    std::signal(SIGPIPE, SIG_IGN);
    // Logging rules of an image or an environment would silence debug messages before the handler sees them.
    QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, true);
    qInstallMessageHandler(messageHandler);
}

LogStream::~LogStream()
{
    // Qt's own streams cut the last blank; one that inserts no blanks passes the text on as it is.
    const QMessageLogger logger;
    QDebug out = type_ == QtWarningMsg ? logger.warning() : logger.debug();
    out.nospace().noquote() << text_;
}
