// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/call.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QObject>

namespace bluez {

class PendingCall;

/// The receiver of the reply to one call. It logs a failure and passes the reply to the PendingCall that waits for it.
///
/// Create it with `new`. It deletes itself after the reply, or after the call's timeout. No other code may delete it,
/// because QtDBus's thread accesses the receiver of a reply while the main thread runs.
class ReplyHandler : public QObject {
    Q_OBJECT
public:
    /// `pendingCall` receives the reply; null to ignore the reply.
    ReplyHandler(Need need, PendingCall *pendingCall) : need_(need), pendingCall_(pendingCall) {}

    /// Sends the call. Replies and signals arrive in the order in which BlueZ sent them.
    void send(const Call &call);
    /// Ignores the reply when it arrives.
    void detach() { pendingCall_ = nullptr; }

private Q_SLOTS:
    void succeeded(const QDBusMessage &reply);
    void failed(const QDBusError &error, const QDBusMessage &call);

private:
    void finish(const QDBusMessage &reply);

    Need need_;
    PendingCall *pendingCall_;
    bool isPropertyCall_ = false;
};

} // namespace bluez
