// SPDX-License-Identifier: MIT
#include "module/i2sswitch.h"

#include <QFile>

void I2sSwitch::set(bool on)
{
    QFile file(QString::fromLatin1(I2sSwitchFile));
    if (!file.open(QIODevice::WriteOnly)) {
        qWarning("Could not open BT I2S Switch");
        return;
    }
    file.write(on ? "1" : "0");
}
