// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/busview.h"
#include "doctor/finding.h"

namespace doctor {

/// Checks a board with an external module: the serial line, the processes that have it open, the kernel's console, and
/// the switch of the module's I2S audio. `serviceUser`, if known, must have access to line and switch.
Findings checkModule(const Peer &service, std::optional<uid_t> serviceUser);

} // namespace doctor
