// SPDX-License-Identifier: MIT
#pragma once

#include <QDBusObjectPath>
#include <QMap>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QVariantMap>

/// The interfaces of one D-Bus object: a map from interface name to properties (a{sa{sv}}).
using QVariantMapMap = QMap<QString, QVariantMap>;

/// The object tree of a service: a map from object path to interfaces (a{oa{sa{sv}}}). Paths are in ascending text
/// order, so that an adapter comes before its devices.
using DBusManagerStruct = QMap<QDBusObjectPath, QVariantMapMap>;

Q_DECLARE_METATYPE(QVariantMapMap)
Q_DECLARE_METATYPE(DBusManagerStruct)

namespace bluez {

/// Registers both containers with Qt's D-Bus marshalling under exactly these names. Call before the first call or
/// subscription that carries one of them or an object path. Repeated calls have no effect.
void registerObjectTreeTypes();

} // namespace bluez
