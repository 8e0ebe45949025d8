// SPDX-License-Identifier: MIT
#include "bench/systemcalls.h"

#include "bench/contestants.h"
#include "bench/fail.h"

#include <QTemporaryFile>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace bench {

namespace {

/// Returns the number of calls from the last line of strace's summary. Its columns: percentage, seconds, microseconds
/// per call, calls, errors (optional).
long totalOf(const QByteArray &summary)
{
    const QList<QByteArray> lines = summary.trimmed().split('\n');
    const QList<QByteArray> words = lines.last().simplified().split(' ');
    if (words.last() != "total" || words.size() < 5)
        fail(QStringLiteral("strace: %1").arg(QString::fromLocal8Bit(summary)));
    return words.at(3).toLong();
}

long callsDuring(Contestant &contestant, int packets)
{
    QTemporaryFile summary;
    int ends[2];
    if (!summary.open() || ::pipe2(ends, O_CLOEXEC) != 0)
        fail(QStringLiteral("cannot create a file or pipe for strace"));
    const FileDescriptor messages(ends[0]);
    FileDescriptor err(ends[1]);

    Process strace({"strace", "-f", "-c", "-o", QFile::encodeName(summary.fileName()), "-p",
                    QByteArray::number(contestant.process().pid())},
                   {}, {-1, -1, err.get()});
    err.reset();
    QByteArray said;
    while (!said.contains("attached")) {
        char text[256];
        const ssize_t size = ::read(messages.get(), text, sizeof text);
        if (size <= 0)
            fail(QString::fromLocal8Bit(said));
        said.append(text, static_cast<int>(size));
    }
    contestant.pump().run(Pump::Pace::RealTime, packets);
    strace.signal(SIGINT);
    strace.wait();
    return totalOf(summary.readAll());
}

} // namespace

double countSystemCalls(Contestant &contestant, int packets)
{
    const long once = callsDuring(contestant, packets);
    const long twice = callsDuring(contestant, 2 * packets);
    return static_cast<double>(twice - once) / packets;
}

} // namespace bench
