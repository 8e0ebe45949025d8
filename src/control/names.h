// SPDX-License-Identifier: MIT
#pragma once

#include <QLatin1String>

/// The D-Bus names that the control interface uses and exports.
namespace control {

inline constexpr QLatin1String Service("org.kadobt");
inline constexpr QLatin1String ObjectPath("/kadobt");

// libdbus emits "Disconnected" here when the connection to the bus ends.
inline constexpr QLatin1String LocalPath("/org/freedesktop/DBus/Local");
inline constexpr QLatin1String LocalInterface("org.freedesktop.DBus.Local");

} // namespace control
