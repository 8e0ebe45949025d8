// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/busview.h"
#include "doctor/finding.h"

namespace doctor {

/// On a board with an external module: its serial line, who has it open, and the switch of its I2S audio.
/// `serviceUser`, if there is one, has to be able to use both.
Findings lookAtModule(const Peer &service, std::optional<uid_t> serviceUser);

} // namespace doctor
