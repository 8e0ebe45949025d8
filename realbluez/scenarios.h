// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

namespace realbluez {

QStringList scenarioNames();

/// Runs a scenario with the phones of this machine. Returns false when a step failed.
bool playScenario(const QString &name);

} // namespace realbluez
