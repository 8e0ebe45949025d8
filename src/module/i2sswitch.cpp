#include "module/i2sswitch.h"

#include <QFile>

void I2sSwitch::set(bool on)
{
    QFile file(QStringLiteral("/sys/class/leds/bt_sw_i2s/brightness"));
    if (!file.open(QIODevice::WriteOnly)) {
        qWarning("Could not open BT I2S Switch");
        return;
    }
    file.write(on ? "1" : "0");
}
