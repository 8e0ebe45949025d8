// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

namespace sim {

struct DemoOptions {
    QString outDirectory;  ///< where heard.wav is written; made when it is not there
    QString busSocketPath; ///< of the board's bus; empty: somewhere temporary
    bool hold;             ///< keep streaming until SIGINT or SIGTERM
    QStringList files;     ///< recordings, played one after another
};

/// Shows the daemon at work on a board, telling on standard output what happens, and sums up. Returns the exit status
/// of the program: 0 when everything was as it should be. Needs a QCoreApplication.
int runDemo(const DemoOptions &options);

} // namespace sim
