// SPDX-License-Identifier: MIT
#include "sim/daemon.h"

#include "sim/waiting.h"

#include <QDir>
#include <QFile>
#include <QProcessEnvironment>

#include <csignal>
#include <cstdio>

namespace sim {

namespace {

constexpr int StopTimeoutMs = 5000;

QString defaultProgram()
{
    return qEnvironmentVariable("KADO_BT", QStringLiteral(KADO_BT_BINARY));
}

QByteArray readProc(const QProcess &process, const char *name)
{
    QFile file(QStringLiteral("/proc/%1/%2").arg(process.processId()).arg(QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Returns the number after "KEY:" in smaps_rollup, in KiB, or 0 when the file cannot be read.
int memoryKib(const QProcess &process, const QByteArray &key)
{
    const QByteArray fields = readProc(process, "smaps_rollup").simplified();
    return fields.mid(fields.indexOf(key + ": ") + key.size() + 2).split(' ').first().toInt();
}

} // namespace

Daemon::Daemon(const QString &program, QObject *parent)
    : QObject(parent), program_(program.isEmpty() ? defaultProgram() : program)
{
    connect(&process_, &QProcess::readyReadStandardError, this, &Daemon::readLog);
    connect(&process_, &QProcess::readyReadStandardOutput, this,
            [this] { output_ += process_.readAllStandardOutput(); });
}

Daemon::~Daemon()
{
    stop();
    failOnSanitizerReport();
}

void Daemon::start(const QString &busAddress, const QStringList &arguments, const QString &redirection)
{
    partial_.clear();
    output_.clear();
    log_.clear();
    clock_.start();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), busAddress);
    process_.setProcessEnvironment(environment);
    if (redirection.isEmpty()) {
        process_.start(program_, arguments);
    } else {
        const QString command = QStringLiteral("exec \"$0\" \"$@\" ") + redirection;
        process_.start(QStringLiteral("/bin/sh"), QStringList{QStringLiteral("-c"), command, program_} + arguments);
    }
    if (!process_.waitForStarted())
        std::fprintf(stderr, "%s: %s\n", qPrintable(program_), qPrintable(process_.errorString()));
}

void Daemon::stop()
{
    if (process_.state() == QProcess::NotRunning)
        return;
    process_.terminate();
    if (!waitFor([this] { return process_.state() == QProcess::NotRunning; }, StopTimeoutMs)) {
        process_.kill();
        process_.waitForFinished();
    }
}

QStringList Daemon::logTexts() const
{
    QStringList texts;
    for (const LogLine &line : log_)
        texts.append(line.text);
    return texts;
}

bool Daemon::logged(const QString &line, int from) const
{
    for (int i = from; i < log_.size(); ++i) {
        if (log_.at(i).text.trimmed() == line.trimmed())
            return true;
    }
    return false;
}

bool Daemon::pause()
{
    const auto isStopped = [this] { return readProc(process_, "stat").contains(") T "); };
    return ::kill(static_cast<pid_t>(process_.processId()), SIGSTOP) == 0 && waitFor(isStopped);
}

bool Daemon::resume()
{
    return ::kill(static_cast<pid_t>(process_.processId()), SIGCONT) == 0;
}

int Daemon::openDescriptors() const
{
    const QDir directory(QStringLiteral("/proc/%1/fd").arg(process_.processId()));
    return static_cast<int>(directory.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size());
}

int Daemon::residentKib() const
{
    return memoryKib(process_, "Rss");
}

int Daemon::privateDirtyKib() const
{
    return memoryKib(process_, "Private_Dirty");
}

int Daemon::cpuMs() const
{
    // Skip the process name, which is in brackets and may contain anything. After it, state is the first field, utime
    // the 12th, stime the 13th.
    const QByteArray stat = readProc(process_, "stat");
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13)
        return 0;
    return static_cast<int>((fields.at(11).toLongLong() + fields.at(12).toLongLong()) * 1000 / ::sysconf(_SC_CLK_TCK));
}

void Daemon::failOnSanitizerReport() const
{
    const QString log = logTexts().join(QLatin1Char('\n'));
    if (log.contains(QLatin1String("Sanitizer")) || log.contains(QLatin1String(": runtime error: ")))
        qFatal("%s", qPrintable(log));
}

void Daemon::readLog()
{
    partial_ += process_.readAllStandardError();
    for (auto end = partial_.indexOf('\n'); end >= 0; end = partial_.indexOf('\n')) {
        const QString text = QString::fromUtf8(partial_.left(end));
        partial_.remove(0, end + 1);
        if (text.startsWith(QLatin1String("qemu: uncaught target signal ")))
            continue; // printed by qemu, not by the daemon, when a binary of another architecture has aborted
        log_.append({clock_.elapsed(), text});
        Q_EMIT logLine(text);
    }
}

int settledDescriptors(const Daemon &daemon)
{
    constexpr int SameReadings = 15; // waitFor() reads at least every 10 ms
    int count = -1;
    int same = 0;
    waitFor([&] {
        const int now = daemon.openDescriptors();
        same = now == count ? same + 1 : 0;
        count = now;
        return same == SameReadings;
    });
    return count;
}

} // namespace sim
