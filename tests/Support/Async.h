#pragma once

#include "Concurrency/Task.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <optional>

namespace quillo::test {

/// Turns the event loop until `condition` holds; false when `watchdog` passes first. Does not sleep: it checks the
/// condition after each event.
bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds watchdog = std::chrono::seconds(10));

/// Drives `task` to its end and returns its result; throws what the task throws, and std::runtime_error when `watchdog`
/// passes first.
template <class T>
T await(Task<T> task, std::chrono::milliseconds watchdog = std::chrono::seconds(10)) {
    struct Outcome {
        std::conditional_t<std::is_void_v<T>, bool, std::optional<T>> value{};
        std::exception_ptr error;
        bool done = false;
    };
    auto outcome = std::make_shared<Outcome>();
    const auto drive = [](Task<T> inner, std::shared_ptr<Outcome> result) -> Task<> {
        try {
            if constexpr (std::is_void_v<T>)
                co_await inner;
            else
                result->value.emplace(co_await inner);
        } catch (...) {
            result->error = std::current_exception();
        }
        result->done = true;
    };
    drive(std::move(task), outcome);
    if (!waitUntil([&] { return outcome->done; }, watchdog))
        throw std::runtime_error("the watchdog ended a task that did not finish");
    if (outcome->error)
        std::rethrow_exception(outcome->error);
    if constexpr (!std::is_void_v<T>)
        return std::move(*outcome->value);
}

} // namespace quillo::test
