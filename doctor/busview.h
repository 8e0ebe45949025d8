// SPDX-License-Identifier: MIT
#pragma once

#include <QDBusMessage>
#include <QString>

#include <chrono>
#include <optional>
#include <sys/types.h>

namespace doctor {

/// A service of the system bus, and its reply to one call.
struct Peer {
    bool hasOwner = false; ///< a process owns the name
    std::optional<uid_t> user;
    uint process = 0;   ///< its number; 0: unknown
    QDBusMessage reply; ///< reply or error
};

/// The state of the system bus at one moment.
struct BusView {
    QString error;              ///< why the bus could not be queried; empty when it could
    bool isActivatable = false; ///< the bus can start org.kadobt
    Peer service;               ///< org.kadobt; the reply has the properties of the control interface (a{sv})
    Peer bluez;                 ///< org.bluez; the reply has its tree of objects (a{oa{sa{sv}}})
};

/// Timeout of a call to a service. A healthy service answers sooner even under load.
inline constexpr std::chrono::milliseconds CallTimeout(2000);

/// Queries the bus and both services. Starts nothing and changes nothing. Blocks as long as the bus blocks, and up to
/// CallTimeout for both services together.
BusView queryBus();

bool isAccessDenied(const QDBusMessage &reply);
bool isTimeout(const QDBusMessage &reply);

/// Describes a bad reply. Returns name and text of an error. For a reply without an error, returns that its types are
/// unexpected.
QString errorText(const QDBusMessage &reply);

} // namespace doctor
