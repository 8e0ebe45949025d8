// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/finding.h"

#include <QByteArray>

namespace doctor {

/// Whether nothing is wrong.
bool isHealthy(const Findings &findings);

/// A line for each finding: level, thing, state, advice. Control characters, of a phone's name for instance, become
/// "?".
QByteArray asLines(const Findings &findings);

/// One object: "healthy", a boolean, and "findings", a list of objects with "level", "about", "seen" and "advice".
QByteArray asJson(const Findings &findings);

} // namespace doctor
