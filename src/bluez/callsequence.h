// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/pendingcall.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

namespace bluez {

/// A sequence of calls to BlueZ. Each call starts when the one before has succeeded or failed. The destructor ends the
/// sequence.
class CallSequence {
public:
    /// Returns the call of one step. If a step returns no call, the next step follows at once.
    using Step = std::function<std::optional<Call>()>;

    /// Runs the steps in order, then calls `done`. Call only once.
    void start(std::vector<Step> steps, std::function<void()> done);

private:
    void next();

    std::vector<Step> steps_;
    size_t nextStep_ = 0;
    std::function<void()> done_;
    PendingCall call_;
};

} // namespace bluez
