// SPDX-License-Identifier: MIT
#pragma once

#include <QDBusConnection>
#include <QDBusMessage>

#include <functional>

namespace sim {

/// Runs the event loop until `condition` is true. Returns false when it is still false after `ms`. Evaluates the
/// condition after every event and every 10 ms. Does not count time in which this process was stopped, for example by
/// a signal.
bool waitFor(const std::function<bool()> &condition, int ms = 10000);

/// Opens a new connection to the bus at `address`. Close it with disconnectFromBus() and its name().
QDBusConnection connectToBus(const QString &address);

/// Calls a method and runs the event loop until the reply or error arrives, for 10 s at most. In contrast to a blocking
/// call, the callee and others can call objects of this process meanwhile.
QDBusMessage callAndWait(const QDBusConnection &connection, const QDBusMessage &call);

} // namespace sim
