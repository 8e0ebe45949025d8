// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/objecttree.h"
#include "doctor/busview.h"
#include "doctor/finding.h"

#include <optional>

namespace doctor {

/// BlueZ and the adapter that kado-bt uses, its first: whether phones can find the speaker, as one that plays.
Findings lookAtAdapter(const Peer &bluez, uid_t caller);

/// BlueZ's objects; none when it did not tell them.
std::optional<DBusManagerStruct> objectsOf(const Peer &bluez);

} // namespace doctor
