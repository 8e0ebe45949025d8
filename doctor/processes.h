// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QString>

namespace doctor {

struct Process {
    QString folder; ///< below /proc
    QString name;   ///< its first 15 bytes, as the kernel keeps it
};

/// The processes that this user can see.
QList<Process> processes();

/// Whether /proc hides those of other users.
bool othersAreHidden();

} // namespace doctor
