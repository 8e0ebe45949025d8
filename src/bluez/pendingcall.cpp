// SPDX-License-Identifier: MIT
#include "bluez/pendingcall.h"

#include "bluez/replyhandler.h"

#include <utility>

namespace bluez {

void PendingCall::start(const Call &call, Callback callback)
{
    cancel();
    callback_ = std::move(callback);
    handler_ = new ReplyHandler(call.need, this);
    handler_->send(call);
}

void PendingCall::cancel()
{
    if (ReplyHandler *handler = std::exchange(handler_, nullptr))
        handler->detach();
}

void PendingCall::finish(const QDBusMessage &reply)
{
    handler_ = nullptr;
    // Move the callback out first, because it may start the next call or destroy this object.
    if (const Callback callback = std::move(callback_))
        callback(reply);
}

} // namespace bluez
