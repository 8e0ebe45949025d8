// SPDX-License-Identifier: MIT
#pragma once

#include <QLatin1String>

/// The D-Bus names that the daemon uses from BlueZ or exports to it.
namespace bluez {

inline constexpr QLatin1String Service("org.bluez");
inline constexpr QLatin1String RootPath("/org/bluez");

inline constexpr QLatin1String AnyPath(""); ///< matches every path in a subscription
inline constexpr QLatin1String ObjectManagerPath("/");
inline constexpr QLatin1String ObjectManagerInterface("org.freedesktop.DBus.ObjectManager");
inline constexpr QLatin1String PropertiesInterface("org.freedesktop.DBus.Properties");

inline constexpr QLatin1String AdapterInterface("org.bluez.Adapter1");
inline constexpr QLatin1String AgentManagerInterface("org.bluez.AgentManager1");
inline constexpr QLatin1String DeviceInterface("org.bluez.Device1");
inline constexpr QLatin1String MediaInterface("org.bluez.Media1");
inline constexpr QLatin1String MediaTransportInterface("org.bluez.MediaTransport1");

inline constexpr QLatin1String AgentPath("/Nodera/BluetoothAgent");

inline constexpr QLatin1String PropertiesChanged("PropertiesChanged");
inline constexpr QLatin1String PropertiesChangedSignature("sa{sv}as");
inline constexpr QLatin1String AliasProperty("Alias");
inline constexpr QLatin1String ConnectedProperty("Connected");
inline constexpr QLatin1String StateProperty("State");

/// The service class that a phone connects to for audio (Bluetooth Assigned Numbers, 3.3).
inline constexpr QLatin1String A2dpSinkUuid("0000110B-0000-1000-8000-00805F9B34FB");

} // namespace bluez
