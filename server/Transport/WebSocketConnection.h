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

/// One streaming socket: carries frames between a client and its TranscriptionSession, and limits how much memory
/// either side can use.
template <class Stream>
class WebSocketConnection : public std::enable_shared_from_this<WebSocketConnection<Stream>> {
public:
    using Upgrade = boost::beast::http::request<boost::beast::http::buffer_body>;
    using Clock = std::chrono::steady_clock;

    WebSocketConnection(Stream&& stream, std::shared_ptr<ConnectionState> state, SignIn signIn, Limits::Place place)
        : m_stream(std::move(stream)), m_state(std::move(state)), m_userId(std::move(signIn.user.id)),
          m_place(std::move(place)), m_entry(m_state->context->streams->add(m_userId, signIn.id, m_state->control)) {
        // Write frames of a few kilobytes in one piece; splitting them would need a buffer per connection.
        m_stream.auto_fragment(false);
        m_stream.read_message_max(0);
    }

    asio::awaitable<void> run(Upgrade upgrade) {
        // Held while the coroutine runs; coroutines started by it hold their own reference.
        const auto self = this->shared_from_this();
        boost::system::error_code error;
        co_await m_stream.async_accept(upgrade, asio::redirect_error(asio::use_awaitable, error));
        upgrade = {};
        if (!error) {
            open();
            co_await readFrames();
            m_session->abandon();
            m_session.reset();
        }
        if (m_writing)
            control().cut();
        control().release();
    }

private:
    [[nodiscard]] const ServerOptions& options() const { return m_state->context->options; }
    [[nodiscard]] ConnectionControl& control() const { return *m_state->control; }

    void open() {
        TranscriptionSession::Channel channel;
        channel.send = [this](std::string frame) { send(std::move(frame)); };
        channel.post = [strand = control().strand()](std::function<void()> call) {
            asio::post(strand, std::move(call));
        };
        channel.dispose = [context = m_state->context](std::unique_ptr<RecognitionSession> recognition) {
            asio::post(context->streamWork, [held = std::shared_ptr<RecognitionSession>(
                                                 std::move(recognition))]() mutable { held.reset(); });
        };
        channel.keep = [context = m_state->context](LiveTranscript live) {
            asio::post(context->streamWork,
                       [tasks = context->tasks, live = std::move(live)] { tasks->keepLive(live); });
        };
        if (options().servesMeetings)
            channel.meetings.tasks = m_state->context->tasks;
        channel.meetings.work = [context = m_state->context](std::function<void()> work) {
            asio::post(context->uploadWork, std::move(work));
        };
        m_session = std::make_shared<TranscriptionSession>(
            std::move(channel), m_state->context->recogniser,
            TranscriptionSession::Bounds{options().finishTimeout, options().maxSessionTime, options().finishSign,
                                         options().busyWait},
            m_userId);
        m_stream.text(true);
        m_lastFrame = Clock::now();
        std::weak_ptr<WebSocketConnection> weak = this->weak_from_this();
        control().onRequest([weak](ConnectionControl::Request request) {
            if (const auto self = weak.lock())
                self->handle(request);
        });
        m_session->begin();
        // The request may have arrived before the handler was set.
        if (m_state->context->stopping)
            handle(ConnectionControl::Request::drain);
        watch();
    }

    void handle(ConnectionControl::Request request) {
        if (!m_session || m_closing)
            return;
        if (request == ConnectionControl::Request::signOut) {
            log(LogLevel::info, "connection", "user " + m_userId + " is not signed in any more; the socket is closed");
            close(websocket::close_code::policy_error, "not signed in any more");
        } else if (request == ConnectionControl::Request::drain && m_session->warnOfStop(options().drainTime)) {
            m_draining = true;
        } else {
            close(websocket::close_code::going_away, "the server is stopping");
        }
    }

    asio::awaitable<void> readFrames() {
        boost::beast::flat_buffer buffer;
        while (true) {
            bool oversized = false;
            size_t total = 0;
            boost::system::error_code error;
            do {
                const size_t count = co_await m_stream.async_read_some(
                    buffer, readBlock, asio::redirect_error(asio::use_awaitable, error));
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
            } while (!m_stream.is_message_done());
            if (m_closing) {
                buffer.consume(buffer.size());
                continue;
            }
            m_lastFrame = Clock::now();
            if (oversized) {
                m_session->receiveOversized(options().maxFrameBytes);
            } else if (m_stream.got_text()) {
                m_session->receive({static_cast<const char*>(buffer.cdata().data()), buffer.size()});
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
        auto work = m_session->takeBlockingWork();
        if (!work)
            co_return;
        while (work) {
            co_await runBlocking(m_state->context->streamWork, control().strand(), [work = std::move(work)] {
                work();
                return true;
            });
            if (m_session->blockingWorkDone())
                co_return;
            co_await pause(std::chrono::milliseconds(200));
            work = m_session->takeBlockingWork();
        }
    }

    asio::awaitable<void> pause(std::chrono::milliseconds time) {
        asio::steady_timer timer(control().strand());
        timer.expires_after(time);
        boost::system::error_code error;
        co_await timer.async_wait(asio::redirect_error(asio::use_awaitable, error));
    }

    /// Audio that arrives faster than the recogniser reads it stays in the client's socket, not in our memory.
    asio::awaitable<void> holdBack() {
        if (m_session->backlogSeconds() <= options().maxBacklogSeconds)
            co_return;
        while (!m_closing && m_session->backlogSeconds() > options().maxBacklogSeconds) {
            m_lastFrame = Clock::now();
            watch();
            co_await pause(std::chrono::milliseconds(50));
        }
    }

    void send(std::string frame) {
        if (m_closing)
            return;
        m_queuedBytes += frame.size();
        m_queue.push_back(std::move(frame));
        if (m_queuedBytes > options().maxQueuedBytes) {
            log(LogLevel::warning, "connection", "cut: user " + m_userId + " does not read what is sent");
            m_closing = true;
            control().cut();
            return;
        }
        if (!m_writing)
            writeNext();
    }

    void writeNext() {
        m_writing = true;
        m_writeStarted = Clock::now();
        m_stream.async_write(asio::buffer(m_queue.front()),
                             [self = this->shared_from_this()](const boost::system::error_code& error, size_t) {
                                 self->m_writing = false;
                                 self->m_queuedBytes -= self->m_queue.front().size();
                                 self->m_queue.pop_front();
                                 if (error || self->m_closing)
                                     return;
                                 if (!self->m_queue.empty())
                                     self->writeNext();
                                 else if (self->m_draining && self->m_session && self->m_session->isIdle())
                                     self->close(websocket::close_code::going_away, "the server is stopping");
                             });
        watch();
    }

    /// Sets the deadline to the earliest timeout.
    void watch() {
        if (m_closing || !m_session)
            return;
        auto next = m_lastFrame + options().idleTimeout;
        if (m_writing)
            next = std::min(next, m_writeStarted + options().writeTimeout);
        if (const auto deadline = m_session->deadline())
            next = std::min(next, *deadline);
        std::weak_ptr<WebSocketConnection> weak = this->weak_from_this();
        control().expireAt(next, [weak] {
            if (const auto self = weak.lock())
                self->onDeadline();
        });
    }

    void onDeadline() {
        const auto now = Clock::now();
        if (!m_session || m_closing)
            return;
        if (m_writing && now >= m_writeStarted + options().writeTimeout) {
            log(LogLevel::warning, "connection", "cut: user " + m_userId + " does not read what is sent");
            m_closing = true;
            control().cut();
            return;
        }
        if (now >= m_lastFrame + options().idleTimeout) {
            close(websocket::close_code::going_away, "no frame came for too long");
            return;
        }
        if (const auto deadline = m_session->deadline(); deadline && now >= *deadline)
            m_session->onDeadline();
        watch();
    }

    void close(websocket::close_code code, const char* reason) {
        if (m_closing)
            return;
        m_closing = true;
        control().expireAfter(std::min<std::chrono::milliseconds>(options().stopTimeout, std::chrono::seconds(3)));
        m_stream.async_close({code, reason}, [self = this->shared_from_this()](const boost::system::error_code&) {});
    }

    static constexpr size_t readBlock = size_t{64} * 1024;
    static constexpr size_t keptBufferBytes = size_t{16} * 1024;
    /// Bytes of a message that is too large and is read only to be dropped.
    static constexpr size_t maxDiscardedBytes = size_t{64} * 1024 * 1024;

    websocket::stream<Stream, false> m_stream;
    std::shared_ptr<ConnectionState> m_state;
    std::string m_userId;
    Limits::Place m_place;
    std::unique_ptr<OpenStreams::Entry> m_entry;
    std::shared_ptr<TranscriptionSession> m_session;
    std::deque<std::string> m_queue;
    size_t m_queuedBytes = 0;
    bool m_writing = false;
    bool m_closing = false;
    bool m_draining = false; ///< closes once its dictation has ended
    Clock::time_point m_writeStarted;
    Clock::time_point m_lastFrame;
};

} // namespace quillo::server
