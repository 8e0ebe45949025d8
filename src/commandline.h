// SPDX-License-Identifier: MIT
#pragma once

#include "log/log.h"

#include <QString>
#include <QStringList>

/// The result of parsing the command line.
struct CommandLine {
    enum class Action {
        Run,          ///< start the daemon
        PrintVersion, ///< print name and version, exit status 0
        PrintUsage,   ///< the command line is invalid: print the usage, exit status 255
    };

    Action action = Action::Run;
    LogSettings log;
    bool aacDisabled = false; ///< do not offer AAC to phones

    /// Parses the arguments after the program's name from left to right. Stops at "--version" and at the first unknown
    /// argument. The word after "--debug" is always its value, and a value that is not a number counts as 0.
    static CommandLine parse(const QStringList &arguments);

    /// Returns the text for PrintUsage, including line feeds.
    static QString usage(const QString &name, const QString &version);
};
