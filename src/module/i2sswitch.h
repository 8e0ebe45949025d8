// SPDX-License-Identifier: MIT
#pragma once

/// A LED of the kernel, which holds "1" or "0".
inline constexpr char I2sSwitchFile[] = "/sys/class/leds/bt_sw_i2s/brightness";

/// The board's switch for the module's I2S audio: a LED of the kernel.
class I2sSwitch {
public:
    /// Writes "1" or "0" to "/sys/class/leds/bt_sw_i2s/brightness". A switch that is not there is logged as a warning.
    static void set(bool on);
};
