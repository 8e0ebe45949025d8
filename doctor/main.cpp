// SPDX-License-Identifier: MIT
#include "doctor/accounts.h"
#include "doctor/adapter.h"
#include "doctor/boardfiles.h"
#include "doctor/busview.h"
#include "doctor/mainconf.h"
#include "doctor/module.h"
#include "doctor/phone.h"
#include "doctor/player.h"
#include "doctor/report.h"
#include "doctor/rfkill.h"
#include "doctor/runwithtimeout.h"
#include "doctor/service.h"
#include "doctor/soundservers.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDeadlineTimer>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <unistd.h>
#include <vector>

namespace {

using namespace doctor;
using std::chrono::milliseconds;

// Together less than 5 s, which is the promised duration of a run.
constexpr milliseconds BusTimeout = CallTimeout + milliseconds(1000);
constexpr milliseconds FilesTimeout(1500);

constexpr int UsageStatus = 2;

struct Step {
    QString about;
    std::function<Findings()> check;
};

std::vector<Step> stepsOf(bool module, const BusView &bus)
{
    const std::optional<uid_t> serviceUser = bus.service.user ? bus.service.user : findUser(ServiceUser);
    std::vector<Step> steps{
        {"board's files", [=] { return checkBoardFiles(serviceUser); }},
        {"bus", [&] { return checkService(bus, ::getuid()); }},
    };
    if (module) {
        steps.push_back({"module", [&bus, serviceUser] { return checkModule(bus.service, serviceUser); }});
    } else {
        if (bus.error.isEmpty())
            steps.push_back({"BlueZ", [&] { return checkAdapter(bus.bluez, ::getuid()); }});
        steps.push_back({"rfkill", checkRfkill});
        steps.push_back({"other sound servers", checkSoundServers});
        steps.push_back({"main.conf", checkMainConf});
    }
    steps.push_back({"player", [=] { return checkPlayer(serviceUser); }});
    if (const auto state = stateOf(bus.service))
        steps.push_back({"phone", [&bus, state, module] {
                             return checkPhone(*state, module ? std::nullopt : objectsOf(bus.bluez), audioClients());
                         }});
    return steps;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName("kado-bt-doctor");
    QCoreApplication::setApplicationVersion(KADO_VERSION);
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "Tells why kado-bt plays no sound, or why phones do not find it. Changes nothing.");
    const QCommandLineOption json("json", "Print one JSON object instead of lines.");
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    parser.addOption(json);
    if (!parser.parse(QCoreApplication::arguments()) || !parser.positionalArguments().isEmpty()) {
        std::fprintf(stderr, "%s\n%s", qUtf8Printable(parser.errorText()), qUtf8Printable(parser.helpText()));
        return UsageStatus;
    }
    if (parser.isSet(help) || parser.isSet(version))
        parser.process(app); // prints the text and exits

    BusView timedOut;
    timedOut.error = QString("no answer within %1 s").arg(BusTimeout.count() / 1000);
    const BusView bus = runWithTimeout(BusTimeout, queryBus).value_or(timedOut);

    const QDeadlineTimer deadline(FilesTimeout);
    Findings findings;
    const bool module = runWithTimeout(FilesTimeout, boardHasModule).value_or(false);
    for (const Step &step : stepsOf(module, bus)) {
        const milliseconds remaining(std::max<qint64>(deadline.remainingTime(), 0));
        const std::optional<Findings> found = runWithTimeout(remaining, step.check);
        findings += found ? *found
                          : Findings{wrong(step.about, "the check did not end in time",
                                           "Check for a file system or disk that hangs")};
    }

    const QByteArray report = parser.isSet(json) ? asJson(findings) : asLines(findings);
    std::fwrite(report.constData(), 1, static_cast<size_t>(report.size()), stdout);
    std::fflush(stdout);
    // Skip destructors and exit handlers, because a thread of runWithTimeout() may still run and use this stack.
    std::_Exit(isHealthy(findings) ? EXIT_SUCCESS : EXIT_FAILURE);
}
