// SPDX-License-Identifier: MIT
#pragma once

#include "sim/daemon.h"

#include <QMap>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <functional>

namespace sim {

/// The checks and statistics of a soak. The first failed check prints the last steps and log lines and ends the program
/// with status 1.
class SoakReport {
public:
    /// Also treats as a failure: a warning in the log of `daemon`, and the daemon's end before finish().
    SoakReport(Daemon &daemon, quint32 seed);

    /// Call at the beginning of each step.
    void step(const QString &name);
    /// Adds to a statistic.
    void count(const QString &what, qint64 times = 1) { counts_[what] += times; }
    /// Records the time from sending a packet to receiving its last byte. The table has the maximum.
    void latency(double ms) { maxLatencyMs_ = std::max(maxLatencyMs_, ms); }

    /// Fails with the text `fault` unless `condition` is true.
    void expect(bool condition, const QString &fault);
    /// Fails unless `condition` becomes true within 30 s, much longer than a busy machine takes.
    void await(const std::function<bool()> &condition, const QString &fault);

    /// Fails when the amount of `what` in the daemon has grown by more than `spare`.
    void expectNoGrowth(const QString &what, int before, int after, int spare);
    /// Stops the daemon, fails on a sanitizer's report, and prints the table.
    void finish();

private:
    Daemon &daemon_;
    quint32 seed_;
    bool finished_ = false;
    QStringList steps_;
    QMap<QString, qint64> counts_;
    double maxLatencyMs_ = 0;
};

} // namespace sim
