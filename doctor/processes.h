// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QString>

namespace doctor {

struct Process {
    QString folder; ///< below /proc
    QString name;   ///< the first 15 bytes, because the kernel keeps no more
};

/// Returns the processes that this user can see.
QList<Process> processes();

/// Returns whether /proc hides the processes of other users.
bool othersAreHidden();

} // namespace doctor
