// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

namespace realbluez {

QStringList scenarioNames();

/// Plays a scenario with the phones of this machine; false when a step of it failed.
bool playScenario(const QString &name);

} // namespace realbluez
