// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/call.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QObject>

namespace bluez {

class PendingCall;

/// Receives the answer to one call, logs a failure, and hands the answer to the PendingCall that awaits it.
///
/// It owns itself until the answer is there, or the call's time is over. Nobody else destroys it, because the bus
/// library's thread looks at the receiver of an answer while the main thread runs.
class Answer : public QObject {
    Q_OBJECT
public:
    /// `asker`: null when nobody awaits the answer.
    Answer(Need need, PendingCall *asker) : need_(need), asker_(asker) {}

    /// Makes the call. Answers arrive in the order in which BlueZ sent them, its signals included.
    void await(const Call &call);
    /// The asker no longer wants to know.
    void forgetAsker() { asker_ = nullptr; }

private Q_SLOTS:
    void succeeded(const QDBusMessage &reply);
    void failed(const QDBusError &error, const QDBusMessage &call);

private:
    void finish(const QDBusMessage &reply);

    Need need_;
    PendingCall *asker_;
    bool ofProperty_ = false;
};

} // namespace bluez
