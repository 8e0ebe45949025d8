// SPDX-License-Identifier: MIT
#pragma once

#include "sim/daemon.h"

#include <QMap>
#include <QString>
#include <QStringList>

#include <algorithm>
#include <functional>

namespace sim {

/// How a soak goes. The first thing that is not as it should be ends the program, with status 1 and what led to it.
class SoakReport {
public:
    /// A warning of `daemon`, whose log is read, is a fault, and so is its end.
    SoakReport(Daemon &daemon, quint32 seed);

    /// The next step begins.
    void step(const QString &name);
    /// Something was done `times` times.
    void count(const QString &what, qint64 times = 1) { counts_[what] += times; }
    /// So long after it was sent, a packet was heard.
    void latency(double ms) { latestHeardMs_ = std::max(latestHeardMs_, ms); }

    /// When the first is false, the second is the fault.
    void insist(bool asItShouldBe, const QString &otherwise);
    /// The same for what becomes so within half a minute, which is much longer than a machine takes that does other
    /// things as well.
    void await(const std::function<bool()> &condition, const QString &otherwise);

    /// After a thousand streams the daemon holds no more `what` than before them, but for some to spare.
    void insistOnNoMore(const QString &what, int before, int after, int spare);
    /// Ends the daemon, which has to go without a sanitizer's complaint, and prints the table.
    void finish();

private:
    Daemon &daemon_;
    quint32 seed_;
    bool finished_ = false;
    QStringList steps_;
    QMap<QString, qint64> counts_;
    double latestHeardMs_ = 0;
};

} // namespace sim
