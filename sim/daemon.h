// SPDX-License-Identifier: MIT
#pragma once

#include "sim/childprocess.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

namespace sim {

/// The shipped binary as a child process, on a board's own bus.
class Daemon : public QObject {
    Q_OBJECT
public:
    struct LogLine {
        qint64 ms;    ///< since start()
        QString text; ///< without the line feed, trailing blank kept
    };

    /// `program` is the binary; empty: the environment variable KADO_BT, else the one of this build.
    explicit Daemon(const QString &program = {}, QObject *parent = nullptr);
    ~Daemon() override;

    /// Starts it with DBUS_SYSTEM_BUS_ADDRESS set to `busAddress` and waits until the process runs, or prints why
    /// it does not. An earlier run's log and output are forgotten. `redirection` is the shell's, "2>/dev/full" for
    /// instance.
    void start(const QString &busAddress, const QStringList &arguments = {QStringLiteral("--stderr")},
               const QString &redirection = {});
    /// Ends it with SIGTERM and waits, with the event loop running; one that stays for 5 s is killed.
    void stop();

    /// Stops it in its tracks, returns when it stands; and lets it go on. What reaches it meanwhile is there all at
    /// once.
    bool hold();
    bool letGo();

    /// Signals the lines that the daemon has written by now; waits for none.
    void collectLog() { process_.waitForReadyRead(0); }

    QProcess &process() { return process_; }
    /// Standard error so far, a line each.
    const QList<LogLine> &log() const { return log_; }
    QStringList logTexts() const;
    void forgetLog() { log_.clear(); }
    /// Whether a line stands in the log, from line `from` on, blanks around it not counted.
    bool logged(const QString &line, int from = 0) const;
    /// Standard output so far.
    QByteArray output() const { return output_; }

    /// Open descriptors, resident and private dirty memory (KiB) and CPU time (ms) of the process, from /proc.
    int openDescriptors() const;
    int residentKib() const;
    int privateDirtyKib() const;
    int cpuMs() const;

Q_SIGNALS:
    void logLine(const QString &text);

private:
    void readLog();
    /// Ends this program: what a sanitizer found in the daemon must not pass for a daemon that ended.
    void failOnSanitizerReport() const;

    QString program_;
    ChildProcess process_;
    QByteArray partial_;
    QByteArray output_;
    QList<LogLine> log_;
    QElapsedTimer clock_;
};

/// The sockets that QNetworkAccessManager may keep for its next connections to the player.
inline constexpr int SparePlayerSockets = 6;

/// The daemon's open descriptors once requests that are under way have ended: the same number for a while.
int settledDescriptors(const Daemon &daemon);

} // namespace sim
