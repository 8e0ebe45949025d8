// SPDX-License-Identifier: MIT
#pragma once

#include "sim/board.h"
#include "waituntil.h"

#include <QTest>

namespace boardtest {

inline const QString Hci0 = QStringLiteral("/org/bluez/hci0");
inline const QString Device = QStringLiteral("org.bluez.Device1");
inline const QString PhonePath = Hci0 + QStringLiteral("/dev_00_AA_01_01_00_42");
inline const QString OtherPhonePath = Hci0 + QStringLiteral("/dev_00_AA_01_02_00_42");

/// Returns the target of a status notification.
inline QString notification(bool adapter, bool connected, const char *name, bool streaming)
{
    const auto text = [](bool value) { return QLatin1String(value ? "true" : "false"); };
    return QLatin1String("/BTPropertyChange?type=USB?adapter=") + text(adapter) + QLatin1String("&connected=")
        + text(connected) + QLatin1String("&name=") + QLatin1String(name) + QLatin1String("&streaming=")
        + text(streaming);
}

/// Returns BlueZ's alias of the board's adapter.
inline QVariant alias(const sim::Board &board)
{
    return board.bluez.property(Hci0, QStringLiteral("org.bluez.Adapter1"), QStringLiteral("Alias"));
}

} // namespace boardtest
