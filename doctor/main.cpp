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
#include "doctor/service.h"
#include "doctor/soundservers.h"
#include "doctor/within.h"

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

// Together less than the 5 s that a person, or a script, waits for.
constexpr milliseconds BusLimit = AnswerLimit + milliseconds(1000);
constexpr milliseconds FilesLimit(1500);

constexpr int UsageStatus = 2;

struct Step {
    QString about;
    std::function<Findings()> look;
};

std::vector<Step> stepsOf(bool module, const BusView &bus)
{
    const std::optional<uid_t> serviceUser = bus.service.user ? bus.service.user : userNamed(ServiceUser);
    std::vector<Step> steps{
        {"board's files", [=] { return lookAtBoardFiles(serviceUser); }},
        {"bus", [&] { return lookAtService(bus, ::getuid()); }},
    };
    if (module) {
        steps.push_back({"module", [&bus, serviceUser] { return lookAtModule(bus.service, serviceUser); }});
    } else {
        if (bus.error.isEmpty())
            steps.push_back({"BlueZ", [&] { return lookAtAdapter(bus.bluez, ::getuid()); }});
        steps.push_back({"rfkill", lookAtRfkill});
        steps.push_back({"other sound servers", lookAtSoundServers});
        steps.push_back({"main.conf", lookAtMainConf});
    }
    steps.push_back({"player", [=] { return lookAtPlayer(serviceUser); }});
    if (const auto state = stateOf(bus.service))
        steps.push_back({"phone", [&bus, state, module] {
                             return lookAtPhone(*state, module ? std::nullopt : objectsOf(bus.bluez), audioClients());
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
    parser.setApplicationDescription("Tells why kado-bt is silent, or is not found. Changes nothing.");
    const QCommandLineOption json("json", "Print one JSON object instead of lines.");
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    parser.addOption(json);
    if (!parser.parse(QCoreApplication::arguments()) || !parser.positionalArguments().isEmpty()) {
        std::fprintf(stderr, "%s\n%s", qUtf8Printable(parser.errorText()), qUtf8Printable(parser.helpText()));
        return UsageStatus;
    }
    if (parser.isSet(help) || parser.isSet(version))
        parser.process(app); // prints it and ends

    BusView unheard;
    unheard.error = QString("no answer for %1 s").arg(BusLimit.count() / 1000);
    const BusView bus = within(BusLimit, lookAtBus).value_or(unheard);

    const QDeadlineTimer deadline(FilesLimit);
    Findings findings;
    const bool module = within(FilesLimit, boardHasModule).value_or(false);
    for (const Step &step : stepsOf(module, bus)) {
        const std::optional<Findings> found = within(milliseconds(std::max<qint64>(deadline.remainingTime(), 0)),
                                                     step.look);
        findings += found
            ? *found
            : Findings{wrong(step.about, "the system does not tell in time", "Is a file system or a disk stuck?")};
    }

    const QByteArray report = parser.isSet(json) ? asJson(findings) : asLines(findings);
    std::fwrite(report.constData(), 1, static_cast<size_t>(report.size()), stdout);
    std::fflush(stdout);
    // At once: a thread that still waits for something would hold up an orderly end.
    std::_Exit(isHealthy(findings) ? EXIT_SUCCESS : EXIT_FAILURE);
}
