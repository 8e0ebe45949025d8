// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace realbluez {

/// The folder that the host shares with the virtual machines.
inline const QString Share = QStringLiteral("/lab/share");

/// Prints one line on standard output: wall-clock time in seconds, actor, text.
void logLine(const QString &who, const QString &text);

} // namespace realbluez
