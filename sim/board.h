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

/// The files of a board as the daemon reads them. To be used only in the sandbox (see scripts/sandbox): the paths are
/// the real ones, so the functions refuse, ending the program, unless the environment says KADO_SANDBOX=1.
void writeFile(const QString &path, const QByteArray &content); ///< makes its folder where there is none
void writeDeviceInfo(const QByteArray &xml);                    ///< /etc/kado_info.xml
void removeDeviceInfo();
void writePlayerName(const QByteArray &content); ///< /var/data/player_name
void removePlayerName();

/// A speaker with one BlueZ adapter: bus, BlueZ, player and daemon together.
class Board {
public:
    /// Writes the device file (BlueZ variant) and the name file ("Kitchen"), starts bus, BlueZ with the adapter
    /// /org/bluez/hci0, and the player's service. The daemon is not started.
    explicit Board(const QString &busSocketPath = {});
    ~Board();
    Board(const Board &) = delete;
    Board &operator=(const Board &) = delete;

    /// Starts the daemon (see Daemon) and waits until it has set up the adapter (the first notification has arrived).
    bool startDaemon(const QStringList &arguments = {QStringLiteral("--stderr")}, const QString &redirection = {});

    Bus bus;
    FakeBluez bluez;
    Player player;
    Daemon daemon;
    Control control;
};

} // namespace sim
