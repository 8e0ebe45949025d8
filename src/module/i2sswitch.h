// SPDX-License-Identifier: MIT
#pragma once

/// The brightness file of the kernel LED that drives the switch; it contains "1" or "0".
inline constexpr char I2sSwitchFile[] = "/sys/class/leds/bt_sw_i2s/brightness";

/// The board's switch for the module's I2S audio, a LED device of the kernel.
class I2sSwitch {
public:
    /// Writes "1" or "0" to I2sSwitchFile. Logs a warning if the file cannot be opened.
    static void set(bool on);
};
