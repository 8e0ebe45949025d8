// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/finding.h"

namespace doctor {

/// Checks whether another sound server talks to BlueZ. Phones may then choose its endpoints instead of kado-bt's.
Findings checkSoundServers();

} // namespace doctor
