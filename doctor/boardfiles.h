// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/finding.h"

#include <optional>
#include <sys/types.h>

namespace doctor {

/// Whether the device file selects an external module: then there is no BlueZ to look at.
bool boardHasModule();

/// The speaker's name as kado-bt reads it, empty without one; what is no file is left alone.
QString speakerName();

/// The device file and the file of the speaker's name. `serviceUser`, if there is one, has to be able to read them.
Findings lookAtBoardFiles(std::optional<uid_t> serviceUser);

} // namespace doctor
