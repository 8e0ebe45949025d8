// SPDX-License-Identifier: MIT
#include "bluez/pendingcall.h"

#include "bluez/answer.h"

#include <utility>

namespace bluez {

void PendingCall::start(const Call &call, Then then)
{
    forget();
    then_ = std::move(then);
    answer_ = new Answer(call.need, this);
    answer_->await(call);
}

void PendingCall::forget()
{
    if (Answer *answer = std::exchange(answer_, nullptr))
        answer->forgetAsker();
}

void PendingCall::finish(const QDBusMessage &reply)
{
    answer_ = nullptr;
    // It may make the next call, or destroy this one.
    if (const Then then = std::move(then_))
        then(reply);
}

} // namespace bluez
