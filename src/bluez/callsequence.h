#pragma once

#include "bluez/pendingcall.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

namespace bluez {

/// Calls to BlueZ, each made when the one before has been answered, or has failed.
class CallSequence {
public:
    /// Gives the call when its turn has come; without one the next step follows at once.
    using Step = std::function<std::optional<Call>()>;

    /// Takes the steps one after the other, then calls `done`. A sequence under way is stopped.
    void start(std::vector<Step> steps, std::function<void()> done);
    /// No further step is taken, and `done` is not called.
    void stop();

private:
    void next();

    std::vector<Step> steps_;
    size_t nextStep_ = 0;
    std::function<void()> done_;
    PendingCall call_;
};

} // namespace bluez
