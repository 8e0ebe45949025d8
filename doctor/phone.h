// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/objecttree.h"
#include "doctor/finding.h"

#include <optional>

namespace doctor {

/// Checks the phone, its stream and its codec. `state`: the properties of the control interface. `objects`: BlueZ's
/// objects, none with a module. `audioClients`: the number of clients that are connected to the audio socket.
Findings checkPhone(const QVariantMap &state, const std::optional<DBusManagerStruct> &objects, int audioClients);

} // namespace doctor
