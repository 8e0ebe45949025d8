// SPDX-License-Identifier: MIT
#include "bluez/callsequence.h"

#include <utility>

namespace bluez {

void CallSequence::start(std::vector<Step> steps, std::function<void()> done)
{
    steps_ = std::move(steps);
    done_ = std::move(done);
    next();
}

void CallSequence::next()
{
    while (nextStep_ < steps_.size()) {
        if (const std::optional<Call> call = steps_[nextStep_++]()) {
            call_.start(*call, [this](const QDBusMessage &) { next(); });
            return;
        }
    }
    done_();
}

} // namespace bluez
