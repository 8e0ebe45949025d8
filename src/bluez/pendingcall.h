// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/call.h"

#include <QDBusMessage>

#include <functional>

namespace bluez {

class ReplyHandler;

/// A call to BlueZ whose reply goes to a callback, one call at a time. The destructor cancels the call, so no reply
/// reaches a destroyed owner. A descriptor in such a reply is closed.
class PendingCall {
public:
    /// Receives the reply, or an error message if BlueZ refuses, is missing or does not reply in time.
    using Callback = std::function<void(const QDBusMessage &reply)>;

    PendingCall() = default;
    ~PendingCall() { cancel(); }
    PendingCall(const PendingCall &) = delete;
    PendingCall &operator=(const PendingCall &) = delete;

    /// Sends the call and runs `callback` with the reply. Cancels an earlier call.
    void start(const Call &call, Callback callback);
    /// Drops the reply when it arrives. BlueZ is not informed and still executes the call.
    void cancel();
    bool isPending() const { return handler_ != nullptr; }

private:
    friend class ReplyHandler;
    void finish(const QDBusMessage &reply);

    ReplyHandler *handler_ = nullptr; ///< owns itself
    Callback callback_;
};

} // namespace bluez
