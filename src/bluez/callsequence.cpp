#include "bluez/callsequence.h"

#include <utility>

namespace bluez {

void CallSequence::start(std::vector<Step> steps, std::function<void()> done)
{
    stop();
    steps_ = std::move(steps);
    done_ = std::move(done);
    nextStep_ = 0;
    next();
}

void CallSequence::stop()
{
    call_.forget();
    steps_.clear();
    done_ = nullptr;
}

void CallSequence::next()
{
    while (nextStep_ < steps_.size()) {
        if (const std::optional<Call> call = steps_[nextStep_++]()) {
            call_.start(*call, [this](const QDBusMessage &) { next(); });
            return;
        }
    }
    if (const std::function<void()> done = std::move(done_))
        done();
}

} // namespace bluez
