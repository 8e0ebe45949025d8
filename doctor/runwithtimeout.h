// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <thread>

namespace doctor {

/// Runs `function` in a thread of its own. Returns its result, or nothing when it takes longer than `timeout`. The
/// thread then continues, so everything that `function` refers to must live until the process ends.
template <typename Function>
auto runWithTimeout(std::chrono::milliseconds timeout, Function function) -> std::optional<decltype(function())>
{
    using Result = decltype(function());
    const auto promise = std::make_shared<std::promise<Result>>();
    std::future<Result> result = promise->get_future();
    std::thread([promise, function = std::move(function)] { promise->set_value(function()); }).detach();
    if (result.wait_for(timeout) != std::future_status::ready)
        return {};
    return result.get();
}

} // namespace doctor
