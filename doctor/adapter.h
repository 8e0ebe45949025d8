// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/objecttree.h"
#include "doctor/busview.h"
#include "doctor/finding.h"

#include <optional>

namespace doctor {

/// Checks BlueZ and its first adapter, which kado-bt uses: phones must be able to find the speaker and see it as an
/// audio device. `caller`: the user who runs this program.
Findings checkAdapter(const Peer &bluez, uid_t caller);

/// Returns BlueZ's objects, or nothing when the reply is an error or has other types.
std::optional<DBusManagerStruct> objectsOf(const Peer &bluez);

} // namespace doctor
