// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/finding.h"

namespace doctor {

/// Checks in /sys/class/rfkill whether the kernel blocks the radio.
Findings checkRfkill();

} // namespace doctor
