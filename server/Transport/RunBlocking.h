#pragma once

#include "Transport/Asio.h"

#include <boost/asio/awaitable.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <exception>
#include <functional>
#include <memory>
#include <optional>

namespace quillo::server {

/// Runs `call` on a thread that may block and resumes on `strand`, on which the caller must be running, with its result
/// or exception.
///
/// The coroutine itself never leaves its strand, and none is started from outside its strand. clang 16 keeps the
/// locals of an inlined await_suspend in the coroutine frame (LLVM issue 56301): when another thread resumes the
/// coroutine while await_suspend still returns, the two share memory that may be freed. On a strand the resumption
/// waits for the handler that suspends, so that this cannot happen; co_spawn onto the pool would not wait.
template <class Call>
asio::awaitable<std::invoke_result_t<Call>> runBlocking(asio::thread_pool& pool, asio::any_io_executor strand,
                                                        Call call) {
    struct Outcome {
        explicit Outcome(Call inner) : call(std::move(inner)) {}
        Call call;
        std::optional<std::invoke_result_t<Call>> value;
        std::exception_ptr error;
    };
    const auto outcome = std::make_shared<Outcome>(std::move(call));
    const auto initiate = [&pool, strand, outcome](auto handler) {
        // A pool accepts only copyable functions, and the handler is move-only.
        auto resume = std::make_shared<decltype(handler)>(std::move(handler));
        asio::post(pool, [strand, outcome = outcome, resume = std::move(resume)]() mutable {
            try {
                outcome->value.emplace(outcome->call());
            } catch (...) {
                outcome->error = std::current_exception();
            }
            outcome.reset();
            asio::post(strand, [resume = std::move(resume)] { std::move (*resume)(); });
        });
    };
    co_await asio::async_initiate<const asio::use_awaitable_t<>, void()>(initiate, asio::use_awaitable);
    if (outcome->error)
        std::rethrow_exception(outcome->error);
    co_return std::move(*outcome->value);
}

} // namespace quillo::server
