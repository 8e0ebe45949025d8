// SPDX-License-Identifier: MIT
#pragma once

#include "sim/childprocess.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

namespace sim {

/// The shipped daemon, run as a child process on the bus of a board.
class Daemon : public QObject {
    Q_OBJECT
public:
    struct LogLine {
        qint64 ms;    ///< since start()
        QString text; ///< without the line feed, with trailing blanks
    };

    /// `program` is the path of the daemon. Empty: the environment variable KADO_BT, or this build's daemon when it is
    /// not set.
    explicit Daemon(const QString &program = {}, QObject *parent = nullptr);
    ~Daemon() override;

    /// Clears log and output, starts the daemon with DBUS_SYSTEM_BUS_ADDRESS set to `busAddress`, and waits until the
    /// process runs. Prints the reason when it cannot start. `redirection` is shell syntax, for example "2>/dev/full".
    void start(const QString &busAddress, const QStringList &arguments = {QStringLiteral("--stderr")},
               const QString &redirection = {});
    /// Sends SIGTERM and runs the event loop until the daemon has ended. Kills it after 5 s.
    void stop();

    /// Stops the process with SIGSTOP and waits until the kernel reports it as stopped. After resume() the daemon finds
    /// all events of that time at once.
    bool pause();
    bool resume();

    /// Emits logLine() for the lines that the daemon has written so far. Does not wait.
    void collectLog() { process_.waitForReadyRead(0); }

    QProcess &process() { return process_; }
    /// Returns the lines on standard error so far.
    const QList<LogLine> &log() const { return log_; }
    QStringList logTexts() const;
    void clearLog() { log_.clear(); }
    /// Returns whether the log has this line at index `from` or later. Ignores blanks at both ends.
    bool logged(const QString &line, int from = 0) const;
    /// Returns standard output so far.
    QByteArray output() const { return output_; }

    /// Figures of the process from /proc: open descriptors, resident memory, private dirty memory, CPU time.
    int openDescriptors() const;
    int residentKib() const;
    int privateDirtyKib() const;
    int cpuMs() const;

Q_SIGNALS:
    void logLine(const QString &text);

private:
    void readLog();
    /// Ends this program when the log has a sanitizer's report, because a test could mistake it for a normal exit.
    void failOnSanitizerReport() const;

    QString program_;
    ChildProcess process_;
    QByteArray partial_;
    QByteArray output_;
    QList<LogLine> log_;
    QElapsedTimer clock_;
};

/// Number of sockets to the player that the daemon may keep open between requests, because QNetworkAccessManager
/// reuses them.
inline constexpr int SparePlayerSockets = 6;

/// Returns the number of the daemon's open descriptors as soon as it has not changed for a while, when no request is
/// in progress.
int settledDescriptors(const Daemon &daemon);

} // namespace sim
