#pragma once

#include "Concurrency/Executor.h"

#include <coroutine>
#include <deque>
#include <exception>
#include <limits>
#include <mutex>
#include <optional>
#include <stop_token>
#include <utility>

namespace quillo {

/// Why a stream ended.
enum class StreamTermination {
    finished,  ///< the producer ended it
    cancelled, ///< the consumer dropped it or its stop token was triggered
};

/// A queue between threads, read by a coroutine: any number of producers, one consumer.
///
/// The producer holds a `Sink` (copyable, any thread), calls `yield`, and finally `finish` or `fail`. The consumer
/// awaits `next()` on the executor the stream was made for, until it yields nothing. Nothing is dropped or repeated,
/// however slow the consumer is, unless a limit was given: then the oldest element makes room. The consumer is always
/// resumed by work posted to its executor, never from inside `yield`, `finish` or a stop callback. The executor must
/// outlive every sink.
template <class T>
class AsyncStream {
    struct State {
        Executor& executor;
        std::mutex mutex;
        std::deque<T> queue;
        size_t limit;
        size_t dropped = 0;
        bool closed = false;
        std::exception_ptr error;
        std::coroutine_handle<> waiter;
        std::function<void(StreamTermination)> onTermination;

        State(Executor& consumer, size_t most) : executor(consumer), limit(most) {}

        void close(StreamTermination reason, std::exception_ptr failure = {}) {
            std::function<void(StreamTermination)> callback;
            std::coroutine_handle<> waiting;
            std::deque<T> discarded;
            {
                const std::lock_guard lock(mutex);
                if (closed)
                    return;
                closed = true;
                error = std::move(failure);
                if (reason == StreamTermination::cancelled)
                    discarded.swap(queue);
                callback = std::exchange(onTermination, nullptr);
                waiting = std::exchange(waiter, nullptr);
            }
            if (callback)
                callback(reason);
            if (waiting)
                executor.post([waiting] { waiting.resume(); });
        }
    };

    class Next {
    public:
        Next(std::shared_ptr<State> state, std::stop_token token)
            : m_state(std::move(state)), m_token(std::move(token)) {}
        Next(const Next&) = delete;
        Next& operator=(const Next&) = delete;

        bool await_ready() const {
            if (m_token.stop_requested()) {
                m_state->close(StreamTermination::cancelled);
                return true;
            }
            const std::lock_guard lock(m_state->mutex);
            return !m_state->queue.empty() || m_state->closed;
        }

        bool await_suspend(std::coroutine_handle<> handle) {
            // The waiter resumes only on this executor, so never while this function runs on it. The stop callback may
            // close the stream inline here; it then posts the resumption.
            {
                const std::lock_guard lock(m_state->mutex);
                if (!m_state->queue.empty() || m_state->closed)
                    return false;
                m_state->waiter = handle;
            }
            if (m_token.stop_possible())
                m_onStop.emplace(m_token, Cancel{m_state});
            return true;
        }

        std::optional<T> await_resume() {
            m_onStop.reset();
            const std::lock_guard lock(m_state->mutex);
            if (!m_state->queue.empty()) {
                std::optional<T> element(std::move(m_state->queue.front()));
                m_state->queue.pop_front();
                return element;
            }
            if (m_state->error)
                std::rethrow_exception(std::exchange(m_state->error, nullptr));
            return std::nullopt;
        }

    private:
        struct Cancel {
            std::shared_ptr<State> state;
            void operator()() const { state->close(StreamTermination::cancelled); }
        };

        std::shared_ptr<State> m_state;
        std::stop_token m_token;
        std::optional<std::stop_callback<Cancel>> m_onStop;
    };

    class NextOperation {
    public:
        NextOperation(std::shared_ptr<State> state, std::stop_token token)
            : m_state(std::move(state)), m_token(std::move(token)) {}
        Next operator co_await() const { return Next(m_state, m_token); }

    private:
        std::shared_ptr<State> m_state;
        std::stop_token m_token;
    };

public:
    /// The producer's end. Copyable; every function may be called from any thread.
    class Sink {
    public:
        Sink() = default;

        /// Appends an element; false when the stream has ended and the element was not taken.
        bool yield(T element) const { // NOLINT(performance-unnecessary-value-param)
            std::coroutine_handle<> waiting;
            {
                const std::lock_guard lock(m_state->mutex);
                if (m_state->closed)
                    return false;
                if (m_state->queue.size() >= m_state->limit) {
                    m_state->queue.pop_front();
                    ++m_state->dropped;
                }
                m_state->queue.push_back(std::move(element));
                waiting = std::exchange(m_state->waiter, nullptr);
            }
            if (waiting)
                m_state->executor.post([waiting] { waiting.resume(); });
            return true;
        }

        /// Ends the stream; the consumer still receives what is queued.
        void finish() const { m_state->close(StreamTermination::finished); }

        /// Ends the stream; after what is queued, the consumer's `next()` throws `error` once.
        void fail(std::exception_ptr error) const { m_state->close(StreamTermination::finished, std::move(error)); }

        /// Calls `callback` once when the stream ends, on the thread that ends it; at once if it has ended already.
        void onTermination(std::function<void(StreamTermination)> callback) const {
            {
                const std::lock_guard lock(m_state->mutex);
                if (!m_state->closed) {
                    m_state->onTermination = std::move(callback);
                    return;
                }
            }
            callback(StreamTermination::cancelled);
        }

        /// How many elements the limit has dropped so far.
        [[nodiscard]] size_t dropped() const {
            const std::lock_guard lock(m_state->mutex);
            return m_state->dropped;
        }

        [[nodiscard]] explicit operator bool() const { return m_state != nullptr; }

    private:
        friend class AsyncStream;
        explicit Sink(std::shared_ptr<State> state) : m_state(std::move(state)) {}
        std::shared_ptr<State> m_state;
    };

    /// A stream whose consumer runs on `consumer`.
    static std::pair<AsyncStream, Sink> make(Executor& consumer, size_t limit = std::numeric_limits<size_t>::max()) {
        auto state = std::make_shared<State>(consumer, limit);
        return {AsyncStream(state), Sink(state)};
    }

    /// A stream that yields `elements` and ends.
    static AsyncStream of(Executor& consumer, std::deque<T> elements) {
        auto [stream, sink] = make(consumer);
        for (auto& element : elements)
            sink.yield(std::move(element));
        sink.finish();
        return std::move(stream);
    }

    AsyncStream(AsyncStream&&) noexcept = default;
    AsyncStream& operator=(AsyncStream&& other) noexcept {
        if (this != &other) {
            cancel();
            m_state = std::move(other.m_state);
        }
        return *this;
    }
    AsyncStream(const AsyncStream&) = delete;
    AsyncStream& operator=(const AsyncStream&) = delete;
    ~AsyncStream() { cancel(); }

    /// Awaits the next element; nothing when the stream has ended. A stop request ends the stream as cancelled and
    /// discards what is queued.
    NextOperation next(std::stop_token token = {}) { return NextOperation(m_state, std::move(token)); }

    /// Ends the stream from the consumer's side, as destroying the stream does.
    void cancel() {
        if (m_state)
            m_state->close(StreamTermination::cancelled);
    }

private:
    explicit AsyncStream(std::shared_ptr<State> state) : m_state(std::move(state)) {}
    std::shared_ptr<State> m_state;
};

} // namespace quillo
