// SPDX-License-Identifier: MIT
#include "commandline.h"

CommandLine CommandLine::parse(const QStringList &arguments)
{
    CommandLine result;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        if (*argument == QLatin1String("--version")) {
            result.action = Action::PrintVersion;
            return result;
        }
        if (*argument == QLatin1String("--stderr")) {
            result.log.logToStderr = true;
        } else if (*argument == QLatin1String("--debug") && argument + 1 != arguments.end()) {
            result.log.debugLevel = (++argument)->toInt();
        } else if (*argument == QLatin1String("--disable-aac")) {
            result.aacDisabled = true;
        } else {
            result.action = Action::PrintUsage;
            return result;
        }
    }
    return result;
}

QString CommandLine::usage(const QString &name, const QString &version)
{
    return name + QLatin1Char(' ') + version
        + QLatin1String(" invalid command line, valid paramaters:\n"
                        "--version      Display version and exit.\n"
                        "--stderr       Log to stderr instead of syslog.\n"
                        "--debug N      Set debug level to N (default: 0)\n"
                        "--disable-aac  Disable AAC support\n");
}
