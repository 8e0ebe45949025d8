// SPDX-License-Identifier: MIT
#include "realbluez/bridge.h"
#include "realbluez/scenarios.h"
#include "realbluez/sound.h"
#include "realbluez/speaker.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

// The program that scripts/realbluez runs in its virtual machines, and on the host to compare the results.
int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    const QString part = arguments.value(0);
    if (part == QLatin1String("bridge"))
        return realbluez::bridge(arguments.mid(1));
    if (part == QLatin1String("speaker"))
        return realbluez::runSpeaker();
    if (part == QLatin1String("phone"))
        return realbluez::playScenario(arguments.value(1)) ? EXIT_SUCCESS : EXIT_FAILURE;
    if (part == QLatin1String("compare"))
        return realbluez::compareStreams(arguments.value(1)) ? EXIT_SUCCESS : EXIT_FAILURE;
    if (part == QLatin1String("scenarios")) {
        std::puts(qPrintable(realbluez::scenarioNames().join(QLatin1Char('\n'))));
        return EXIT_SUCCESS;
    }
    std::fputs("usage: kado-realbluez bridge PORT...|speaker|phone SCENARIO|compare FOLDER|scenarios\n", stderr);
    return EXIT_FAILURE;
}
