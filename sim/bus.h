// SPDX-License-Identifier: MIT
#pragma once

#include "sim/childprocess.h"

#include <QString>
#include <QTemporaryDir>

namespace sim {

/// A private message bus: a dbus-daemon of its own, as a child process, in which everybody may own and send
/// everything. It ends with this object. With folders in the environment's KADO_BUS_POLICY, separated by colons, it is
/// the system bus as its package configures it, with the policy files in these folders.
class Bus {
public:
    /// Starts the bus and waits until it listens. `socketPath` is where its socket is made; empty: in a temporary
    /// directory. A bus that does not start within 5 s ends the program with a message.
    explicit Bus(const QString &socketPath = {});
    ~Bus();
    Bus(const Bus &) = delete;
    Bus &operator=(const Bus &) = delete;

    /// Kills the bus, and with it every connection.
    void kill();

    /// "unix:path=...", for DBUS_SYSTEM_BUS_ADDRESS and FakeBluez.
    QString address() const { return address_; }

private:
    QTemporaryDir dir_;
    QString socketPath_;
    QString address_;
    ChildProcess process_;
};

} // namespace sim
