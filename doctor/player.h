// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/finding.h"

#include <optional>
#include <sys/types.h>

namespace doctor {

/// The media player on 127.0.0.1:11000, and the audio socket: whether kado-bt's user made it, and the player's user may
/// connect. The player sees a connection that ends at once; the socket is only looked at.
Findings lookAtPlayer(std::optional<uid_t> serviceUser);

/// How many clients are connected to the audio socket.
int audioClients();

} // namespace doctor
