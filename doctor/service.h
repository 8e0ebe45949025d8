// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/busview.h"
#include "doctor/finding.h"

#include <QVariantMap>

namespace doctor {

/// Checks the bus, the owner of the name org.kadobt and its user, and whether `caller` may call it.
Findings checkService(const BusView &bus, uid_t caller);

/// Returns the properties of the control interface, or nothing when the reply is an error or has other types.
std::optional<QVariantMap> stateOf(const Peer &service);

} // namespace doctor
