// SPDX-License-Identifier: MIT
#pragma once

namespace sim {

/// Runs the shipped daemon on a board with an external module. The daemon corrects wrong settings; a phone connects,
/// plays and disconnects; the speaker is renamed; the player receives silence for `silenceSeconds`. Prints each event
/// on standard output. Returns the exit status, 0 when every check passed.
int runModuleDemo(int silenceSeconds);

} // namespace sim
