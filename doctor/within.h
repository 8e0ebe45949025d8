// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <thread>

namespace doctor {

/// What `look` returns, or none when it takes longer than `limit`. It goes on in a thread of its own then, so it must
/// not use anything that ends before the process does.
template <typename Look>
auto within(std::chrono::milliseconds limit, Look look) -> std::optional<decltype(look())>
{
    using Result = decltype(look());
    const auto promise = std::make_shared<std::promise<Result>>();
    std::future<Result> result = promise->get_future();
    std::thread([promise, look = std::move(look)] { promise->set_value(look()); }).detach();
    if (result.wait_for(limit) != std::future_status::ready)
        return {};
    return result.get();
}

} // namespace doctor
