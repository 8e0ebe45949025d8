// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>

namespace realbluez {

/// Gives the kernel a Bluetooth controller, hci0, hci1 and so on, for each of `ports`: the names of virtio serial ports
/// behind which an emulated controller speaks H4 (Bluetooth Core 5.3, vol. 4, part A). Carries packets both ways until
/// one side hangs up; returns the exit status.
int bridge(const QStringList &ports);

} // namespace realbluez
