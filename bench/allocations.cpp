// SPDX-License-Identifier: MIT
#include "bench/allocations.h"

#include "bench/contestants.h"
#include "bench/fail.h"

#include <QTemporaryFile>

namespace bench {

namespace {

/// The counter that alloccounter.cpp shares with this process.
class Counter {
public:
    Counter()
    {
        if (!file_.open() || !file_.resize(sizeof(quint64)))
            fail(file_.errorString());
        shared_ = reinterpret_cast<const volatile quint64 *>(file_.map(0, sizeof(quint64)));
        if (!shared_)
            fail(file_.errorString());
    }

    QByteArray path() const { return QFile::encodeName(file_.fileName()); }
    quint64 value() const { return *shared_; }

private:
    QTemporaryFile file_;
    const volatile quint64 *shared_ = nullptr;
};

} // namespace

Allocations countAllocations(const Material &material, int realTimePackets, int backToBackPackets)
{
    const Counter counter;
    KadoBt daemon(material, {"LD_PRELOAD=" KADO_ALLOCCOUNTER, "KADO_BENCH_ALLOCATIONS=" + counter.path()});
    daemon.warmUp();
    if (counter.value() == 0)
        fail(QStringLiteral("the preloaded counter counts no allocations"));

    const auto during = [&](Pump::Pace pace, int packets) {
        const quint64 before = counter.value();
        daemon.pump().run(pace, packets);
        return static_cast<double>(counter.value() - before) / packets;
    };
    return {during(Pump::Pace::RealTime, realTimePackets), during(Pump::Pace::BackToBack, backToBackPackets)};
}

} // namespace bench
