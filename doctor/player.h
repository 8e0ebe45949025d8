// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/finding.h"

#include <optional>
#include <sys/types.h>

namespace doctor {

/// Checks the media player on 127.0.0.1:11000 and the audio socket: kado-bt's user must own the socket, and the
/// player's user must be able to connect to it. Opens a connection to the player and closes it at once. Does not
/// connect to the audio socket.
Findings checkPlayer(std::optional<uid_t> serviceUser);

/// Counts the clients that are connected to the audio socket.
int audioClients();

} // namespace doctor
