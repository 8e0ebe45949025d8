// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/finding.h"

namespace doctor {

/// Whether the kernel blocks the radio, by the switches in /sys/class/rfkill.
Findings lookAtRfkill();

} // namespace doctor
