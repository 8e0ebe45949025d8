// SPDX-License-Identifier: MIT
#include "soak/soakreport.h"

#include "sim/waiting.h"

#include <cstdio>
#include <cstdlib>

namespace sim {

namespace {

constexpr int PatienceMs = 30'000;
constexpr int StepsShown = 12;

} // namespace

SoakReport::SoakReport(Daemon &daemon, quint32 seed) : daemon_(daemon), seed_(seed)
{
    QObject::connect(&daemon_, &Daemon::logLine, &daemon_, [this](const QString &line) {
        insist(!line.startsWith("Warning: ") && !line.startsWith("Unexpected "), "the daemon warns: " + line);
    });
    QObject::connect(&daemon_.process(), qOverload<int, QProcess::ExitStatus>(&QProcess::finished), &daemon_,
                     [this] { insist(finished_, "the daemon has ended"); });
}

void SoakReport::step(const QString &name)
{
    steps_.append(name);
    count("step: " + name);
}

void SoakReport::insist(bool asItShouldBe, const QString &otherwise)
{
    static bool failed = false; // what else goes wrong follows from it
    if (asItShouldBe || std::exchange(failed, true))
        return;
    daemon_.stop(); // a sanitizer has its say at the end
    const QString list = "\n    ";
    const auto steps = static_cast<int>(steps_.size());
    std::printf("\nThe daemon's last lines:\n    %s\nThe last steps:\n    %s\n",
                qPrintable(daemon_.logTexts().join(list)),
                qPrintable(steps_.mid(std::max(0, steps - StepsShown)).join(list)));
    std::printf("FAILED in step %d: %s.\nTo see it again: scripts/soak MINUTES %u\n", steps, qPrintable(otherwise),
                seed_);
    std::fflush(stdout);
    std::_Exit(EXIT_FAILURE);
}

void SoakReport::await(const std::function<bool()> &condition, const QString &otherwise)
{
    insist(waitFor(condition, PatienceMs), otherwise);
}

void SoakReport::insistOnNoMore(const QString &what, int before, int after, int spare)
{
    count(what, after);
    insist(after <= before + spare, QString("the daemon had %1, and has %2 ").arg(before).arg(after) + what);
}

void SoakReport::finish()
{
    finished_ = true;
    daemon_.stop();
    const bool isKilled = daemon_.process().exitStatus() == QProcess::CrashExit; // by SIGTERM, as what ships
    insist(isKilled || daemon_.process().exitCode() == EXIT_SUCCESS, "the daemon leaks memory");
    for (auto count = counts_.begin(); count != counts_.end(); ++count)
        std::printf("%12lld  %s\n", count.value(), qPrintable(count.key()));
    std::printf("%12.1f  ms after it was sent the latest packet was heard\n", latestHeardMs_);
    std::printf("Everything was as it should be.\n");
}

} // namespace sim
