// SPDX-License-Identifier: MIT
#pragma once

namespace realbluez {

/// Runs the speaker (bluetoothd, the daemon and the media player) until the phones' machine has ended. Logs the
/// daemon's lines, the requests to the player and the size of the received audio. Returns the exit status.
int runSpeaker();

} // namespace realbluez
