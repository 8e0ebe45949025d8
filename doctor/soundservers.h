// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/finding.h"

namespace doctor {

/// Whether another sound server talks to BlueZ: its endpoints take phones away from kado-bt's.
Findings lookAtSoundServers();

} // namespace doctor
