// SPDX-License-Identifier: MIT
#pragma once

#include <QLatin1String>

/// The names of the system bus that both boards use or serve, each once.
namespace control {

inline constexpr QLatin1String Service("org.kadobt");
inline constexpr QLatin1String ObjectPath("/kadobt");

// Where the bus library itself reports the end of its connection.
inline constexpr QLatin1String LocalPath("/org/freedesktop/DBus/Local");
inline constexpr QLatin1String LocalInterface("org.freedesktop.DBus.Local");

} // namespace control
