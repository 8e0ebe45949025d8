// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/objecttree.h"
#include "doctor/finding.h"

#include <optional>

namespace doctor {

/// The phone, its stream and codec just now. `state`: the properties of the control interface; `objects`: BlueZ's, none
/// with a module; `audioClients`: how many are connected to the audio socket.
Findings lookAtPhone(const QVariantMap &state, const std::optional<DBusManagerStruct> &objects, int audioClients);

} // namespace doctor
