// SPDX-License-Identifier: MIT
#pragma once

namespace sim {

/// Runs the shipped daemon on a board with an external module: wrong settings are corrected, a phone comes, plays and
/// leaves, the speaker is renamed, and the player gets silence for `silenceSeconds`. Tells all of it on standard
/// output; returns the exit status, 0 when everything was as it should be.
int runModuleDemo(int silenceSeconds);

} // namespace sim
