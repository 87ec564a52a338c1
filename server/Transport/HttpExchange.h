#pragma once

#include "Transport/RequestAdmission.h"
#include "Transport/RunBlocking.h"

#include <boost/asio/redirect_error.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

#include <array>
#include <limits>

namespace quillo::server {

namespace http = boost::beast::http;

/// One request and its answer on a stream. Used on the connection's strand.
template <class Stream>
class HttpExchange {
public:
    /// Delivers the body block by block, because only the route knows how to use it.
    using Parser = http::request_parser<http::buffer_body>;

    /// `stream` and `buffer` must outlive it; the buffer keeps bytes read beyond the request.
    HttpExchange(Stream& stream, boost::beast::flat_buffer& buffer, std::shared_ptr<ConnectionState> state)
        : m_stream(stream), m_buffer(buffer), m_state(std::move(state)) {
        m_parser.header_limit(static_cast<uint32_t>(options().maxHeaderBytes));
        // The route sets the limit of the body later. Do not use "none": Boost 1.74 treats it as zero.
        m_parser.body_limit(std::numeric_limits<uint64_t>::max());
    }

    HttpRequest request;

    /// Reads the header; false when the connection has ended. Waiting and the header share one time limit, so that a
    /// peer gains no time by sending byte by byte.
    asio::awaitable<bool> readHeader(std::chrono::milliseconds patience) {
        m_state->control->expireAfter(patience);
        co_await http::async_read_header(m_stream, m_buffer, m_parser,
                                         asio::redirect_error(asio::use_awaitable, m_error));
        m_state->control->expireAfter(options().requestTimeout);
        if (m_error) {
            if (const auto answer = answerTo(m_error); answer && co_await write(*answer, 11, false))
                co_await linger(0);
            co_return false;
        }
        request = describe(m_parser.get(), m_state->peer, options().trustedProxies);
        co_return true;
    }

    [[nodiscard]] bool isUpgrade() const { return boost::beast::websocket::is_upgrade(m_parser.get()); }
    /// Returns the header for the answer to an upgrade; ends the exchange.
    auto releaseUpgrade() { return m_parser.release(); }
    /// True when the client sent more than the header.
    [[nodiscard]] bool hasMore() const { return m_buffer.size() > 0; }
    [[nodiscard]] bool wantsKeepAlive() const { return m_parser.get().keep_alive(); }
    /// True when the announced length is within `bytes`; limits a body of unknown length to it.
    bool limitBody(uint64_t bytes) {
        const auto length = m_parser.content_length();
        if (length && *length > bytes)
            return false;
        m_parser.body_limit(bytes);
        return true;
    }

    /// Reads the body into `receiver`, or into the request when there is none. Returns the answer that ends the request
    /// early; `failed` says whether the connection did.
    asio::awaitable<std::optional<HttpResponse>> readBody(BodyReceiver* receiver) {
        if (boost::beast::iequals(m_parser.get()[http::field::expect], "100-continue")) {
            http::response<http::string_body> proceed(http::status::continue_, m_parser.get().version());
            co_await http::async_write(m_stream, proceed, asio::redirect_error(asio::use_awaitable, m_error));
        }
        std::unique_ptr<Block> block;
        while (!m_error && !m_parser.is_done()) {
            if (!block)
                block = std::make_unique<Block>();
            const auto bytes = co_await readBlock(*block);
            if (m_error)
                break;
            if (!receiver)
                request.body.append(bytes);
            else if (auto refusal = co_await hand(*receiver, bytes))
                co_return refusal;
        }
        co_return m_error ? answerTo(m_error) : std::nullopt;
    }
    [[nodiscard]] bool failed() const { return static_cast<bool>(m_error); }

    /// Answers; true when the connection can carry another request.
    asio::awaitable<bool> answer(HttpResponse response, bool keepAlive) {
        m_state->control->expireAfter(options().requestTimeout);
        response = m_state->context->router.present(request, std::move(response));
        if (!co_await write(response, m_parser.get().version(), keepAlive))
            co_return false;
        if (!keepAlive)
            co_await linger(0);
        co_return keepAlive;
    }

    /// Answers a request whose body is not read, and ends the connection.
    asio::awaitable<void> refuse(HttpResponse response) {
        m_state->control->expireAfter(options().requestTimeout);
        if (co_await write(m_state->context->router.present(request, std::move(response)), m_parser.get().version(),
                           false))
            co_await linger(unreadBytes());
    }

private:
    using Block = std::array<char, 64 * size_t{1024}>;

    [[nodiscard]] const ServerOptions& options() const { return m_state->context->options; }

    asio::awaitable<std::string_view> readBlock(Block& block) {
        // Every block has its own deadline, so that a body may be large but not slow.
        m_state->control->expireAfter(options().requestTimeout);
        m_parser.get().body().data = block.data();
        m_parser.get().body().size = block.size();
        co_await http::async_read(m_stream, m_buffer, m_parser, asio::redirect_error(asio::use_awaitable, m_error));
        if (m_error == http::error::need_buffer)
            m_error = {};
        co_return std::string_view(block.data(), block.size() - m_parser.get().body().size);
    }

    asio::awaitable<std::optional<HttpResponse>> hand(BodyReceiver& receiver, std::string_view bytes) {
        if (bytes.empty())
            co_return std::nullopt;
        // Waiting for the disk does not count as slowness of the client.
        m_state->control->expireAfter(options().answerTimeout + options().requestTimeout);
        co_return co_await runBlocking(m_state->context->uploadWork, m_state->control->strand(), [&] {
            return Router::guard<std::optional<HttpResponse>>(request, [&] { return receiver.receive(bytes); });
        });
    }

    asio::awaitable<bool> write(const HttpResponse& answer, unsigned version, bool keepAlive) {
        http::response<http::string_body> response;
        response.version(version);
        response.result(static_cast<unsigned>(answer.status));
        response.set(http::field::server, "quillo-server");
        response.set(http::field::content_type, answer.page.empty() ? "application/json" : "text/html; charset=utf-8");
        response.set(http::field::cache_control, "no-store");
        for (const auto& [name, value] : answer.headers)
            response.set(name, value);
        if (options().strictTransportSecurity && request.peer.isEncrypted && !request.peer.isLoopback)
            response.set(http::field::strict_transport_security, "max-age=31536000");
        response.keep_alive(keepAlive);
        if (request.method != "HEAD")
            response.body() = answer.page.empty() ? toText(answer.body) : answer.page;
        response.prepare_payload();
        boost::system::error_code error;
        co_await http::async_write(m_stream, response, asio::redirect_error(asio::use_awaitable, error));
        co_return !error;
    }

    /// Ends a connection so that the peer can still read the answer: closing with unread bytes would reset it. `unread`
    /// is the number of body bytes that the peer may still send.
    asio::awaitable<void> linger(uint64_t unread) {
        constexpr uint64_t mostUnread = uint64_t{64} * 1024 * 1024;
        m_state->control->expireAfter(std::chrono::seconds(unread > 0 ? 5 : 2));
        boost::system::error_code error;
        std::array<char, 4096> rest;
        unread = std::min(unread, mostUnread);
        constexpr bool isPlain = !requires(Stream& stream) { stream.async_shutdown(asio::use_awaitable); };
        if constexpr (isPlain) {
            m_stream.shutdown(Tcp::socket::shutdown_send, error);
            unread = std::max(unread, mostUnread / 8);
        }
        for (uint64_t total = 0; !error && total < unread;)
            total +=
                co_await m_stream.async_read_some(asio::buffer(rest), asio::redirect_error(asio::use_awaitable, error));
        if constexpr (!isPlain) {
            if (!error)
                co_await m_stream.async_shutdown(asio::redirect_error(asio::use_awaitable, error));
        }
    }

    [[nodiscard]] uint64_t unreadBytes() const {
        if (m_parser.is_done())
            return 0;
        const auto known = m_parser.content_length_remaining();
        return known ? *known : std::numeric_limits<uint64_t>::max();
    }

    Stream& m_stream;
    boost::beast::flat_buffer& m_buffer;
    std::shared_ptr<ConnectionState> m_state;
    Parser m_parser;
    boost::system::error_code m_error;
};

} // namespace quillo::server
