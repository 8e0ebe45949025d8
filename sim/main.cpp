// SPDX-License-Identifier: MIT
#include "sim/demo.h"
#include "sim/moduledemo.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <csignal>

int main(int argc, char *argv[])
{
    // A sandbox that ignores Ctrl-C, so as to outlive this program, hands that down.
    std::signal(SIGINT, SIG_DFL);

    QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("A simulated board that shows kado-bt at work. Runs in scripts/sandbox."));
    parser.addHelpOption();
    parser.addOptions({
        {QStringLiteral("out"), QStringLiteral("Where heard.wav is written."), QStringLiteral("DIR"),
         QStringLiteral(".")},
        {QStringLiteral("bus"), QStringLiteral("Where the socket of the board's bus is made."), QStringLiteral("PATH")},
        {QStringLiteral("hold"), QStringLiteral("Keep streaming until Ctrl-C.")},
        {QStringLiteral("silence"), QStringLiteral("How long the player listens to it."), QStringLiteral("SECONDS"),
         QStringLiteral("10")},
    });
    parser.addPositionalArgument(QStringLiteral("demo|module"),
                                 QStringLiteral("A board with a BlueZ adapter, or with an external module."));
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("Demo: the recordings that the phone plays."),
                                 QStringLiteral("[FILE...]"));
    parser.process(application);

    const QStringList words = parser.positionalArguments();
    const QStringList files = words.mid(1);
    if (words.value(0) == QLatin1String("module") && files.isEmpty())
        return sim::runModuleDemo(parser.value(QStringLiteral("silence")).toInt());
    if (words.value(0) == QLatin1String("demo") && !files.isEmpty())
        return sim::runDemo({parser.value(QStringLiteral("out")), parser.value(QStringLiteral("bus")),
                             parser.isSet(QStringLiteral("hold")), files});
    constexpr int UsageStatus = 2;
    parser.showHelp(UsageStatus);
}
