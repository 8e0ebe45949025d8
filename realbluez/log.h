// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace realbluez {

/// The folder that host and machines share.
inline const QString Share = QStringLiteral("/lab/share");

/// One line on standard output: seconds of the clock, who, what.
void say(const QString &who, const QString &text);

} // namespace realbluez
