// SPDX-License-Identifier: MIT
#include "bluez/objecttree.h"

#include <QDBusMetaType>

namespace bluez {

void registerObjectTreeTypes()
{
    // Qt looks the arguments of a subscribed slot up by the names that the slot spells, this one's included.
    qRegisterMetaType<QDBusObjectPath>("QDBusObjectPath");
    qRegisterMetaType<QVariantMapMap>("QVariantMapMap");
    qRegisterMetaType<DBusManagerStruct>("DBusManagerStruct");
    qDBusRegisterMetaType<QVariantMapMap>();
    qDBusRegisterMetaType<DBusManagerStruct>();
}

} // namespace bluez
