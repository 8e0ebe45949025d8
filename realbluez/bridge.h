// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>

namespace realbluez {

/// Creates a Bluetooth controller in the kernel (hci0, hci1 and so on) for each of `ports`, the names of virtio serial
/// ports. Each port leads to an emulated controller with the H4 protocol (Bluetooth Core 5.3, vol. 4, part A). Forwards
/// packets in both directions until one side closes. Returns the exit status.
int bridge(const QStringList &ports);

} // namespace realbluez
