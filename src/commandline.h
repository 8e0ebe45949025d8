// SPDX-License-Identifier: MIT
#pragma once

#include "log/log.h"

#include <QString>
#include <QStringList>

/// What the command line asks for.
struct CommandLine {
    enum class Action {
        Run,          ///< start the daemon
        PrintVersion, ///< print name and version, exit status 0
        PrintUsage,   ///< not a valid command line: print the usage, exit status 255
    };

    Action action = Action::Run;
    LogSettings log;
    bool aacDisabled = false; ///< do not offer AAC to phones

    /// Reads the arguments that follow the program's name, from left to right, up to the first that decides:
    /// "--version" or one that is not known. The word after "--debug" is its value, whatever it looks like; one that is
    /// no number counts as 0.
    static CommandLine parse(const QStringList &arguments);

    /// The text for PrintUsage, with its line feeds.
    static QString usage(const QString &name, const QString &version);
};
