// SPDX-License-Identifier: MIT
#pragma once

#include <QDBusConnection>
#include <QDBusMessage>

#include <functional>

namespace sim {

/// Runs the event loop until `condition` holds; false when it does not within `ms`. The condition is looked at again
/// after every event, so nothing is waited for longer than it takes. Time during which this process stood still,
/// stopped by a signal for instance, does not count.
bool waitFor(const std::function<bool()> &condition, int ms = 10000);

/// A new connection to the bus at `address`, of a name of its own; disconnectFromBus ends it.
QDBusConnection connectToBus(const QString &address);

/// Makes a method call and runs the event loop until its reply or error is there, 10 s at most. Unlike a blocking call
/// it lets objects of this process be called meanwhile, by the callee as well.
QDBusMessage callAndWait(const QDBusConnection &connection, const QDBusMessage &call);

} // namespace sim
