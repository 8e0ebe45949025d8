// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/finding.h"

#include <optional>
#include <sys/types.h>

namespace doctor {

/// Returns whether the device file selects an external module. Such a board has no BlueZ to check.
bool boardHasModule();

/// Returns the speaker's name as kado-bt reads it. Empty when there is no name, or when the path is not a regular file.
/// Opens only a regular file, because a pipe, for example, may block.
QString speakerName();

/// Checks the device file and the file of the speaker's name. `serviceUser`, if known, must be able to read both.
Findings checkBoardFiles(std::optional<uid_t> serviceUser);

} // namespace doctor
