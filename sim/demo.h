// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

namespace sim {

struct DemoOptions {
    QString outDirectory;  ///< folder for heard.wav; created when it is missing
    QString busSocketPath; ///< of the board's bus; empty: in a temporary folder
    bool hold;             ///< play in a loop until SIGINT or SIGTERM
    QStringList files;     ///< recordings, played one after another
};

/// Runs the daemon on a board with a phone that plays. Prints each event and a summary on standard output. Returns the
/// program's exit status, 0 when every check passed. Needs a QCoreApplication.
int runDemo(const DemoOptions &options);

} // namespace sim
