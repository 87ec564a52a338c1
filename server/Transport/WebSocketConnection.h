#pragma once

#include "Foundation/Log.h"
#include "Transport/ConnectionContext.h"
#include "Transport/RunBlocking.h"
#include "Transport/TranscriptionSession.h"

#include <boost/asio/awaitable.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/websocket/rfc6455.hpp>
#include <boost/beast/websocket/stream.hpp>

#include <deque>

namespace quillo::server {

namespace websocket = boost::beast::websocket;

/// One streaming socket: carries frames between a client and its TranscriptionSession, and bounds what either side can
/// make the server hold.
template <class Stream>
class WebSocketConnection : public std::enable_shared_from_this<WebSocketConnection<Stream>> {
public:
    using Upgrade = boost::beast::http::request<boost::beast::http::buffer_body>;
    using Clock = std::chrono::steady_clock;

    WebSocketConnection(Stream&& stream, std::shared_ptr<ConnectionState> state, std::string userId,
                        Limits::Place place)
        : stream_(std::move(stream)), state_(std::move(state)), userId_(std::move(userId)), place_(std::move(place)) {
        // Frames are a few kilobytes and written in one piece; splitting them would cost a buffer per connection.
        stream_.auto_fragment(false);
        stream_.read_message_max(0);
    }

    asio::awaitable<void> run(Upgrade upgrade) {
        // Held for as long as the coroutine runs; what it starts holds its own.
        const auto self = this->shared_from_this();
        boost::system::error_code error;
        co_await stream_.async_accept(upgrade, asio::redirect_error(asio::use_awaitable, error));
        upgrade = {};
        if (!error) {
            open();
            co_await readFrames();
            session_->abandon();
            session_.reset();
        }
        if (writing_)
            control().cut();
        control().release();
    }

private:
    [[nodiscard]] const ServerOptions& options() const { return state_->context->options; }
    [[nodiscard]] ConnectionControl& control() const { return *state_->control; }

    void open() {
        TranscriptionSession::Channel channel;
        channel.send = [this](std::string frame) { send(std::move(frame)); };
        channel.post = [strand = control().strand()](std::function<void()> call) {
            asio::post(strand, std::move(call));
        };
        channel.dispose = [context = state_->context](std::unique_ptr<RecognitionSession> recognition) {
            asio::post(context->blocking, [held = std::shared_ptr<RecognitionSession>(
                                               std::move(recognition))]() mutable { held.reset(); });
        };
        channel.keep = [context = state_->context](LiveTranscript live) {
            asio::post(context->blocking, [tasks = context->tasks, live = std::move(live)] { tasks->keepLive(live); });
        };
        session_ = std::make_shared<TranscriptionSession>(
            std::move(channel), state_->context->recogniser,
            TranscriptionSession::Bounds{options().finishTimeout, options().maxSessionTime}, userId_);
        stream_.text(true);
        lastFrame_ = Clock::now();
        std::weak_ptr<WebSocketConnection> weak = this->weak_from_this();
        control().onStop([weak] {
            if (const auto self = weak.lock())
                self->close(websocket::close_code::going_away, "the server is stopping");
        });
        session_->begin();
        watch();
    }

    asio::awaitable<void> readFrames() {
        boost::beast::flat_buffer buffer;
        while (true) {
            bool oversized = false;
            size_t total = 0;
            boost::system::error_code error;
            do {
                const size_t count = co_await stream_.async_read_some(buffer, readBlock,
                                                                      asio::redirect_error(asio::use_awaitable, error));
                if (error)
                    co_return;
                total += count;
                if (total > options().maxFrameBytes) {
                    oversized = true;
                    buffer.consume(buffer.size());
                }
                if (total > maxDiscardedBytes) {
                    close(websocket::close_code::too_big, "the frame is too large");
                    oversized = true;
                }
            } while (!stream_.is_message_done());
            if (closing_) {
                buffer.consume(buffer.size());
                continue;
            }
            lastFrame_ = Clock::now();
            if (oversized) {
                session_->receiveOversized(options().maxFrameBytes);
            } else if (stream_.got_text()) {
                session_->receive({static_cast<const char*>(buffer.cdata().data()), buffer.size()});
            }
            buffer.consume(buffer.size());
            if (buffer.capacity() > keptBufferBytes)
                buffer.shrink_to_fit();
            co_await openRecogniser();
            co_await holdBack();
            watch();
        }
    }

    asio::awaitable<void> openRecogniser() {
        auto work = session_->takeBlockingWork();
        if (!work)
            co_return;
        co_await runBlocking(state_->context->blocking, control().strand(), [work = std::move(work)] {
            work();
            return true;
        });
        session_->blockingWorkDone();
    }

    /// A client that sends faster than the recogniser listens waits in its own socket, not in our memory.
    asio::awaitable<void> holdBack() {
        if (session_->backlogSeconds() <= options().maxBacklogSeconds)
            co_return;
        asio::steady_timer timer(control().strand());
        boost::system::error_code error;
        while (!closing_ && session_->backlogSeconds() > options().maxBacklogSeconds) {
            lastFrame_ = Clock::now();
            watch();
            timer.expires_after(std::chrono::milliseconds(50));
            co_await timer.async_wait(asio::redirect_error(asio::use_awaitable, error));
        }
    }

    void send(std::string frame) {
        if (closing_)
            return;
        queuedBytes_ += frame.size();
        queue_.push_back(std::move(frame));
        if (queuedBytes_ > options().maxQueuedBytes) {
            log(LogLevel::warning, "connection", "cut: user " + userId_ + " does not read what is sent");
            closing_ = true;
            control().cut();
            return;
        }
        if (!writing_)
            writeNext();
    }

    void writeNext() {
        writing_ = true;
        writeStarted_ = Clock::now();
        stream_.async_write(asio::buffer(queue_.front()),
                            [self = this->shared_from_this()](const boost::system::error_code& error, size_t) {
                                self->writing_ = false;
                                self->queuedBytes_ -= self->queue_.front().size();
                                self->queue_.pop_front();
                                if (!error && !self->closing_ && !self->queue_.empty())
                                    self->writeNext();
                            });
        watch();
    }

    /// Sets the deadline to the first thing that may be overdue.
    void watch() {
        if (closing_ || !session_)
            return;
        auto next = lastFrame_ + options().idleTimeout;
        if (writing_)
            next = std::min(next, writeStarted_ + options().writeTimeout);
        if (const auto deadline = session_->deadline())
            next = std::min(next, *deadline);
        std::weak_ptr<WebSocketConnection> weak = this->weak_from_this();
        control().expireAt(next, [weak] {
            if (const auto self = weak.lock())
                self->onDeadline();
        });
    }

    void onDeadline() {
        const auto now = Clock::now();
        if (!session_ || closing_)
            return;
        if (writing_ && now >= writeStarted_ + options().writeTimeout) {
            log(LogLevel::warning, "connection", "cut: user " + userId_ + " does not read what is sent");
            closing_ = true;
            control().cut();
            return;
        }
        if (now >= lastFrame_ + options().idleTimeout) {
            close(websocket::close_code::going_away, "no frame came for too long");
            return;
        }
        if (const auto deadline = session_->deadline(); deadline && now >= *deadline)
            session_->onDeadline();
        watch();
    }

    void close(websocket::close_code code, const char* reason) {
        if (closing_)
            return;
        closing_ = true;
        control().expireAfter(std::min<std::chrono::milliseconds>(options().stopTimeout, std::chrono::seconds(3)));
        stream_.async_close({code, reason}, [self = this->shared_from_this()](const boost::system::error_code&) {});
    }

    static constexpr size_t readBlock = size_t{64} * 1024;
    static constexpr size_t keptBufferBytes = size_t{16} * 1024;
    /// Of one message that is too large and read only to be dropped.
    static constexpr size_t maxDiscardedBytes = size_t{64} * 1024 * 1024;

    websocket::stream<Stream, false> stream_;
    std::shared_ptr<ConnectionState> state_;
    std::string userId_;
    Limits::Place place_;
    std::shared_ptr<TranscriptionSession> session_;
    std::deque<std::string> queue_;
    size_t queuedBytes_ = 0;
    bool writing_ = false;
    bool closing_ = false;
    Clock::time_point writeStarted_;
    Clock::time_point lastFrame_;
};

} // namespace quillo::server
