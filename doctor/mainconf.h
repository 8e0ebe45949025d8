// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/finding.h"

namespace doctor {

/// BlueZ's settings in /etc/bluetooth/main.conf that make a difference to a speaker.
Findings lookAtMainConf();

} // namespace doctor
