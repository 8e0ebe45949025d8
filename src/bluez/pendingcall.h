// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/call.h"

#include <QDBusMessage>

#include <functional>

namespace bluez {

class Answer;

/// A call to BlueZ that its owner awaits the answer of, one at a time. With the owner goes its interest: no answer
/// reaches what has been destroyed, and a descriptor in it is closed.
class PendingCall {
public:
    /// Gets the reply, or an error message when BlueZ refuses, is not there or does not answer in time.
    using Then = std::function<void(const QDBusMessage &reply)>;

    PendingCall() = default;
    ~PendingCall() { forget(); }
    PendingCall(const PendingCall &) = delete;
    PendingCall &operator=(const PendingCall &) = delete;

    /// Makes the call and goes on with `then` when it is answered. An earlier call is forgotten.
    void start(const Call &call, Then then);
    /// What BlueZ answers is of no interest any more; BlueZ is not told.
    void forget();
    bool isUnderWay() const { return answer_ != nullptr; }

private:
    friend class Answer;
    void finish(const QDBusMessage &reply);

    Answer *answer_ = nullptr; ///< owns itself
    Then then_;
};

} // namespace bluez
