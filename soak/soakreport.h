#pragma once

#include <QElapsedTimer>
#include <QMap>
#include <QString>
#include <QStringList>

#include <algorithm>

namespace sim {

class Daemon;

/// What the daemon's process holds, measured while no phone is there.
struct SoakFootprint {
    int descriptors = 0;
    int residentKib = 0;
    int privateDirtyKib = 0;

    static SoakFootprint of(const Daemon &daemon);
};

/// How a soak goes: what was done and heard, and the first thing that was not as it should be.
class SoakReport {
public:
    explicit SoakReport(quint32 seed);

    /// The next step begins; returns its number, from 1.
    int step(const QString &name);
    /// Returns `asItShouldBe`; when that is false, `otherwise` is the fault, unless there was one before.
    bool insist(bool asItShouldBe, const QString &otherwise);
    bool failed() const { return !fault_.isEmpty(); }

    /// Something was done, or went wrong on purpose, `times` times.
    void cycle(const char *kind, int times = 1) { cycles_[QLatin1String(kind)] += times; }
    void injected(const char *fault, int times = 1) { faults_[QLatin1String(fault)] += times; }

    /// BlueZ was late to answer calls of `method`, or never did.
    void unanswered(const char *method) { ++unanswered_[QLatin1String(method)]; }

    void sent(double seconds) { secondsSent_ += seconds; }
    void heard(qint64 bytes, double seconds);
    /// So long after it was sent, a packet was heard.
    void latency(double ms) { latestHeardMs_ = std::max(latestHeardMs_, ms); }
    void notified(int requests) { requests_ += requests; }
    void wrongBytes(qint64 bytes) { wrongBytes_ += bytes; }
    void wrongRequests(int requests) { wrongRequests_ += requests; }

    /// A line of the daemon's log: one that has no place in a soak is a fault.
    void logLine(const QString &line);
    /// The number in the latest line that counts dropped packets, -1 when there was none since forgetDropped.
    int droppedPackets() const { return droppedPackets_; }
    void forgetDropped() { droppedPackets_ = -1; }

    /// The run so far in a line.
    QString progress() const;
    /// Prints the table, and the fault with what it takes to see it again. Returns the exit status.
    int finish(const SoakFootprint &atStart, const SoakFootprint &atEnd) const;

private:
    void printFault() const;

    quint32 seed_;
    QElapsedTimer clock_;
    int steps_ = 0;
    QStringList latestSteps_;
    QStringList latestLines_;
    QString fault_;
    QMap<QString, int> cycles_;
    QMap<QString, int> faults_;
    QMap<QString, int> unanswered_;
    double secondsSent_ = 0;
    double secondsHeard_ = 0;
    qint64 bytesHeard_ = 0;
    double latestHeardMs_ = 0;
    qint64 wrongBytes_ = 0;
    int requests_ = 0;
    int wrongRequests_ = 0;
    int unexpectedLines_ = 0;
    int droppedPackets_ = -1;
};

} // namespace sim
