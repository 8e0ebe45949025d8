// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/finding.h"

namespace doctor {

/// Checks the settings in BlueZ's /etc/bluetooth/main.conf that matter to a speaker.
Findings checkMainConf();

} // namespace doctor
