// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/finding.h"

#include <QByteArray>

namespace doctor {

/// Returns true unless a finding has Level::Wrong.
bool isHealthy(const Findings &findings);

/// Returns one line for each finding: level, thing, state, advice. Control characters, for example in a phone's name,
/// become "?".
QByteArray asLines(const Findings &findings);

/// Returns one object: "healthy", a boolean, and "findings", a list of objects with "level", "about", "seen" and
/// "advice".
QByteArray asJson(const Findings &findings);

} // namespace doctor
