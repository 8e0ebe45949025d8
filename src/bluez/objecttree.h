// SPDX-License-Identifier: MIT
#pragma once

#include <QDBusObjectPath>
#include <QMap>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QVariantMap>

/// The interfaces of one D-Bus object: interface name to its properties (a{sa{sv}}).
using QVariantMapMap = QMap<QString, QVariantMap>;

/// The object tree of a service: object path to its interfaces (a{oa{sa{sv}}}), in ascending order of the paths'
/// text, so that an adapter comes before its devices.
using DBusManagerStruct = QMap<QDBusObjectPath, QVariantMapMap>;

Q_DECLARE_METATYPE(QVariantMapMap)
Q_DECLARE_METATYPE(DBusManagerStruct)

namespace bluez {

/// Makes both containers known to Qt's D-Bus marshalling, under exactly these names. To be called before the first
/// call or subscription that carries one or an object path; further calls change nothing.
void registerObjectTreeTypes();

} // namespace bluez
