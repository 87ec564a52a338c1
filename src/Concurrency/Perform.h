#pragma once

#include "Concurrency/Task.h"
#include "Concurrency/Wakeup.h"

#include <exception>
#include <memory>
#include <optional>
#include <type_traits>

namespace quillo {

/// Runs `work` on `worker` and returns its result, or throws what it threw, on `home`, the executor of the awaiting
/// coroutine. The work is posted before the call returns and runs even if the result is never awaited.
template <class Work, class Result = std::invoke_result_t<Work&>>
Task<Result> perform(Executor& worker, Executor& home, Work work) {
    struct Shared {
        explicit Shared(Executor& executor) : wakeup(executor) {}
        Wakeup wakeup;
        std::conditional_t<std::is_void_v<Result>, bool, std::optional<Result>> value{};
        std::exception_ptr error;
    };
    auto shared = std::make_shared<Shared>(home);
    auto held = std::make_shared<Work>(std::move(work));
    worker.post([shared, held] {
        try {
            if constexpr (std::is_void_v<Result>)
                (*held)();
            else
                shared->value.emplace((*held)());
        } catch (...) {
            shared->error = std::current_exception();
        }
        shared->wakeup.wake(true);
    });
    co_await shared->wakeup;
    if (shared->error)
        std::rethrow_exception(shared->error);
    if constexpr (!std::is_void_v<Result>)
        co_return std::move(*shared->value);
}

} // namespace quillo
