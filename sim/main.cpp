// SPDX-License-Identifier: MIT
#include "sim/demo.h"
#include "sim/moduledemo.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <csignal>

int main(int argc, char *argv[])
{
    // scripts/demo ignores SIGINT, because the sandbox must outlive this program, and this program inherits that.
    std::signal(SIGINT, SIG_DFL);

    QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("A simulated board that shows kado-bt at work. Runs in scripts/sandbox."));
    parser.addHelpOption();
    parser.addOptions({
        {QStringLiteral("out"), QStringLiteral("Folder for heard.wav."), QStringLiteral("DIR"), QStringLiteral(".")},
        {QStringLiteral("bus"), QStringLiteral("Path of the board's bus socket."), QStringLiteral("PATH")},
        {QStringLiteral("hold"), QStringLiteral("Keep streaming until Ctrl-C.")},
        {QStringLiteral("silence"), QStringLiteral("Duration of the silence that the player receives."),
         QStringLiteral("SECONDS"), QStringLiteral("10")},
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
