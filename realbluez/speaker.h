// SPDX-License-Identifier: MIT
#pragma once

namespace realbluez {

/// The speaker: bluetoothd, the daemon and the media player, until the phones' machine has ended. Logs what the daemon
/// says, and what the player is told and hears; returns the exit status.
int runSpeaker();

} // namespace realbluez
