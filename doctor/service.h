// SPDX-License-Identifier: MIT
#pragma once

#include "doctor/busview.h"
#include "doctor/finding.h"

#include <QVariantMap>

namespace doctor {

/// The bus, the name org.kadobt, its owner's user, and whether `caller` may call it.
Findings lookAtService(const BusView &bus, uid_t caller);

/// The properties of the control interface; none when it did not tell them.
std::optional<QVariantMap> stateOf(const Peer &service);

} // namespace doctor
