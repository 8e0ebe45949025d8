// SPDX-License-Identifier: MIT
#pragma once

#include "sim/bus.h"
#include "sim/control.h"
#include "sim/daemon.h"
#include "sim/fakebluez.h"
#include "sim/phone.h"
#include "sim/player.h"
#include "sim/waiting.h"

#include <QByteArray>

namespace sim {

/// Write and remove the board's files at the real paths that the daemon reads. Call only in scripts/sandbox: without
/// KADO_SANDBOX=1 in the environment these functions end the program.
void writeFile(const QString &path, const QByteArray &content); ///< creates missing folders
void writeDeviceInfo(const QByteArray &xml);                    ///< /etc/kado_info.xml
void removeDeviceInfo();
void writePlayerName(const QByteArray &content); ///< /var/data/player_name
void removePlayerName();

/// A speaker with one BlueZ adapter: bus, BlueZ, player, daemon and a caller of the control interface.
class Board {
public:
    /// Writes the device file (BlueZ variant) and the name file ("Kitchen"). Starts the bus, BlueZ with the adapter
    /// /org/bluez/hci0, and the player's HTTP service. Does not start the daemon.
    explicit Board(const QString &busSocketPath = {});
    ~Board();
    Board(const Board &) = delete;
    Board &operator=(const Board &) = delete;

    /// Starts the daemon (see Daemon). Waits for its first request to the player, which it sends when the adapter is
    /// set up. Returns false when none arrives.
    bool startDaemon(const QStringList &arguments = {QStringLiteral("--stderr")}, const QString &redirection = {});

    Bus bus;
    FakeBluez bluez;
    Player player;
    Daemon daemon;
    Control control;
};

} // namespace sim
