// SPDX-License-Identifier: MIT
#include "bluez/objecttree.h"

#include <QDBusMetaType>

namespace bluez {

void registerObjectTreeTypes()
{
    // QtDBus looks up a slot's argument types by the names in the slot's signature. This includes QDBusObjectPath.
    qRegisterMetaType<QDBusObjectPath>("QDBusObjectPath");
    qRegisterMetaType<QVariantMapMap>("QVariantMapMap");
    qRegisterMetaType<DBusManagerStruct>("DBusManagerStruct");
    qDBusRegisterMetaType<QVariantMapMap>();
    qDBusRegisterMetaType<DBusManagerStruct>();
}

} // namespace bluez
