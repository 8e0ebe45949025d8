// SPDX-License-Identifier: MIT
#pragma once

#include "sim/childprocess.h"

#include <QString>
#include <QTemporaryDir>

namespace sim {

/// A private message bus: a dbus-daemon that runs as a child process and ends with this object. Its policy permits
/// everything, unless the environment's KADO_BUS_POLICY lists folders, separated by colons. The bus then has the
/// configuration of the packaged system bus and the policy files of these folders.
class Bus {
public:
    /// Starts the bus and waits until it listens. Creates its socket at `socketPath`, or in a temporary folder when the
    /// path is empty. Ends the program with a message when the bus does not start within 5 s.
    explicit Bus(const QString &socketPath = {});
    ~Bus();
    Bus(const Bus &) = delete;
    Bus &operator=(const Bus &) = delete;

    /// Kills the bus, which closes every connection.
    void kill();

    /// Returns "unix:path=...", for DBUS_SYSTEM_BUS_ADDRESS and FakeBluez.
    QString address() const { return address_; }

private:
    QTemporaryDir dir_;
    QString socketPath_;
    QString address_;
    ChildProcess process_;
};

} // namespace sim
