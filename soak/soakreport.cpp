// SPDX-License-Identifier: MIT
#include "soak/soakreport.h"

#include "sim/waiting.h"

#include <cstdio>
#include <cstdlib>

namespace sim {

namespace {

constexpr int TimeoutMs = 30'000;
constexpr int StepsShown = 12;

} // namespace

SoakReport::SoakReport(Daemon &daemon, quint32 seed) : daemon_(daemon), seed_(seed)
{
    QObject::connect(&daemon_, &Daemon::logLine, &daemon_, [this](const QString &line) {
        expect(!line.startsWith("Warning: ") && !line.startsWith("Unexpected "), "the daemon warns: " + line);
    });
    QObject::connect(&daemon_.process(), qOverload<int, QProcess::ExitStatus>(&QProcess::finished), &daemon_,
                     [this] { expect(finished_, "the daemon has ended"); });
}

void SoakReport::step(const QString &name)
{
    steps_.append(name);
    count("step: " + name);
}

void SoakReport::expect(bool condition, const QString &fault)
{
    static bool failed = false; // report only the first failure, because stopping the daemon causes others
    if (condition || std::exchange(failed, true))
        return;
    daemon_.stop(); // a sanitizer prints its report at exit
    const QString list = "\n    ";
    const auto steps = static_cast<int>(steps_.size());
    std::printf("\nThe daemon's last lines:\n    %s\nThe last steps:\n    %s\n",
                qPrintable(daemon_.logTexts().join(list)),
                qPrintable(steps_.mid(std::max(0, steps - StepsShown)).join(list)));
    std::printf("FAILED in step %d: %s.\nTo repeat: scripts/soak MINUTES %u\n", steps, qPrintable(fault), seed_);
    std::fflush(stdout);
    std::_Exit(EXIT_FAILURE);
}

void SoakReport::await(const std::function<bool()> &condition, const QString &fault)
{
    expect(waitFor(condition, TimeoutMs), fault);
}

void SoakReport::expectNoGrowth(const QString &what, int before, int after, int spare)
{
    count(what, after);
    expect(after <= before + spare, QString("the daemon had %1 and now has %2 ").arg(before).arg(after) + what);
}

void SoakReport::finish()
{
    finished_ = true;
    daemon_.stop();
    const bool killed = daemon_.process().exitStatus() == QProcess::CrashExit; // by SIGTERM; with a sanitizer it exits
    expect(killed || daemon_.process().exitCode() == EXIT_SUCCESS, "the daemon leaks memory");
    for (auto count = counts_.begin(); count != counts_.end(); ++count)
        std::printf("%12lld  %s\n", count.value(), qPrintable(count.key()));
    std::printf("%12.1f  ms from sending a packet to receiving its last byte, maximum\n", maxLatencyMs_);
    std::printf("All checks passed.\n");
}

} // namespace sim
