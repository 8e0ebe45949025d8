// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/pendingcall.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

namespace bluez {

/// Calls to BlueZ, each made when the one before has been answered, or has failed. With this object the sequence ends.
class CallSequence {
public:
    /// Gives the call when its turn has come; without one the next step follows at once.
    using Step = std::function<std::optional<Call>()>;

    /// Takes the steps one after the other, then calls `done`. To be called once.
    void start(std::vector<Step> steps, std::function<void()> done);

private:
    void next();

    std::vector<Step> steps_;
    size_t nextStep_ = 0;
    std::function<void()> done_;
    PendingCall call_;
};

} // namespace bluez
