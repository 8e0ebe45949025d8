#include "sim/demo.h"
#include "sim/moduledemo.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <csignal>
#include <cstdio>
#include <cstdlib>

int main(int argc, char *argv[])
{
    // A sandbox that ignores Ctrl-C, so as to outlive this program, hands that down.
    std::signal(SIGINT, SIG_DFL);

    constexpr int UsageStatus = 2;
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("kado-board"));

    const QCommandLineOption out(QStringLiteral("out"), QStringLiteral("Where heard.wav is written."),
                                 QStringLiteral("DIR"), QStringLiteral("."));
    const QCommandLineOption bus(QStringLiteral("bus"), QStringLiteral("Where the socket of the board's bus is made."),
                                 QStringLiteral("SOCKETPATH"));
    const QCommandLineOption hold(QStringLiteral("hold"), QStringLiteral("Keep streaming until Ctrl-C."));
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("A simulated board that shows kado-bt at work. Runs in scripts/sandbox."));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption silence(QStringLiteral("silence"), QStringLiteral("How long the player listens to it."),
                                     QStringLiteral("SECONDS"), QStringLiteral("10"));
    parser.addOptions({out, bus, hold, silence});
    parser.addPositionalArgument(QStringLiteral("demo|module"),
                                 QStringLiteral("A board with a BlueZ adapter, or with an external module."));
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("Demo: recordings; without one, a few tones."),
                                 QStringLiteral("[FILE...]"));

    const bool understood = parser.parse(QCoreApplication::arguments());
    if (understood && parser.isSet(help)) {
        std::printf("%s", qPrintable(parser.helpText()));
        return EXIT_SUCCESS;
    }
    const QStringList words = parser.positionalArguments();
    const QString what = words.value(0);
    const int seconds = parser.value(silence).toInt();
    if (understood && what == QLatin1String("module") && words.size() == 1 && seconds > 0)
        return sim::runModuleDemo(seconds);
    if (!understood || what != QLatin1String("demo")) {
        std::fprintf(stderr, "%s\n\n%s", qPrintable(parser.errorText()), qPrintable(parser.helpText()));
        return UsageStatus;
    }

    sim::DemoOptions options;
    options.outDirectory = parser.value(out);
    options.busSocketPath = parser.value(bus);
    options.hold = parser.isSet(hold);
    options.files = words.mid(1);
    return sim::runDemo(options);
}
