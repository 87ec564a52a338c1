#pragma once

#include "Transport/RunBlocking.h"
#include "Transport/Waiting.h"
#include "Transport/WebSocketConnection.h"

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>

#include <limits>

namespace quillo::server {

namespace http = boost::beast::http;

/// Hands the body out block by block: what is to become of it is known to the route alone.
using RequestParser = http::request_parser<http::buffer_body>;
using BodyBlock = std::array<char, 64 * size_t{1024}>;

constexpr const char* transcribePath = "/ws/v3/transcribe";

inline std::string toString(boost::beast::string_view text) { return {text.data(), text.size()}; }

/// Forgets the stream in the deadline before the stream closes the socket.
class ReleaseOnExit {
public:
    explicit ReleaseOnExit(std::shared_ptr<ConnectionControl> control) : m_control(std::move(control)) {}
    ~ReleaseOnExit() { m_control->release(); }
    ReleaseOnExit(const ReleaseOnExit&) = delete;
    ReleaseOnExit& operator=(const ReleaseOnExit&) = delete;

private:
    std::shared_ptr<ConnectionControl> m_control;
};

inline HttpRequest describe(const http::request_header<>& header, const Peer& peer) {
    HttpRequest request;
    request.method = toString(header.method_string());
    const std::string target = toString(header.target());
    const auto question = target.find('?');
    request.path = target.substr(0, question);
    if (question != std::string::npos)
        request.query = target.substr(question + 1);
    request.contentType = toString(header[http::field::content_type]);
    request.authorization = toString(header[http::field::authorization]);
    request.host = toString(header[http::field::host]);
    request.cookie = toString(header[http::field::cookie]);
    request.acceptLanguage = toString(header[http::field::accept_language]);
    request.fetchSite = toString(header["Sec-Fetch-Site"]);
    request.peer = peer;
    return request;
}

/// The refusal of a connection that was one too many; empty when there is a place for it.
inline std::optional<HttpResponse> refusalOf(const ConnectionState& state) {
    using std::chrono::seconds;
    switch (state.admission.verdict) {
    case Limits::Verdict::admitted:
        return std::nullopt;
    case Limits::Verdict::full:
        return retryLater(503, "SERVER_FULL", "The server has no free connection; try again.", seconds(5));
    case Limits::Verdict::fullForKey:
        return retryLater(429, "TOO_MANY_CONNECTIONS", "Too many connections from this address.", seconds(5));
    }
    return std::nullopt;
}

/// Answers a failed read of a request; empty when there is nobody left to answer.
inline std::optional<HttpResponse> answerTo(const boost::system::error_code& error) {
    if (error == http::error::header_limit)
        return errorResponse(431, "invalid_request", "HEADER_TOO_LARGE", "The header of the request is too large.");
    if (error == http::error::body_limit)
        return errorResponse(413, "invalid_request", "BODY_TOO_LARGE", "The body of the request is too large.");
    if (error == http::error::end_of_stream || error == http::error::partial_message)
        return std::nullopt;
    if (error.category() == make_error_code(http::error::bad_method).category())
        return errorResponse(400, "invalid_request", "BAD_REQUEST", "The request is not valid HTTP.");
    return std::nullopt;
}

template <class Stream>
asio::awaitable<bool> writeResponse(Stream& stream, const HttpResponse& answer, unsigned version, bool keepAlive,
                                    bool headOnly = false) {
    http::response<http::string_body> response;
    response.version(version);
    response.result(static_cast<unsigned>(answer.status));
    response.set(http::field::server, "quillo-server");
    response.set(http::field::content_type, answer.page.empty() ? "application/json" : "text/html; charset=utf-8");
    response.set(http::field::cache_control, "no-store");
    for (const auto& [name, value] : answer.headers)
        response.set(name, value);
    response.keep_alive(keepAlive);
    if (!headOnly)
        response.body() = answer.page.empty() ? toText(answer.body) : answer.page;
    response.prepare_payload();
    boost::system::error_code error;
    co_await http::async_write(stream, response, asio::redirect_error(asio::use_awaitable, error));
    co_return !error;
}

/// Ends a connection so that the peer can still read the answer: closing with unread bytes would reset it. `unread`
/// bytes of a body are still to come, if the peer goes on sending.
template <class Stream>
asio::awaitable<void> linger(Stream& stream, std::shared_ptr<ConnectionControl> control, uint64_t unread = 0) {
    constexpr uint64_t mostUnread = uint64_t{64} * 1024 * 1024;
    control->expireAfter(std::chrono::seconds(unread > 0 ? 5 : 2));
    boost::system::error_code error;
    std::array<char, 4096> rest;
    unread = std::min(unread, mostUnread);
    constexpr bool isPlain = !requires { stream.async_shutdown(asio::use_awaitable); };
    if constexpr (isPlain) {
        stream.shutdown(Tcp::socket::shutdown_send, error);
        unread = std::max(unread, mostUnread / 8);
    }
    for (uint64_t total = 0; !error && total < unread;)
        total += co_await stream.async_read_some(asio::buffer(rest), asio::redirect_error(asio::use_awaitable, error));
    if constexpr (!isPlain) {
        if (!error)
            co_await stream.async_shutdown(asio::redirect_error(asio::use_awaitable, error));
    }
}

/// Bytes of the body that have not been read.
inline uint64_t unreadBytes(const RequestParser& parser) {
    if (parser.is_done())
        return 0;
    const auto known = parser.content_length_remaining();
    return known ? *known : std::numeric_limits<uint64_t>::max();
}

/// Who may stream, or why not.
struct StreamAdmission {
    std::optional<HttpResponse> refusal;
    std::string userId;
    Limits::Place place;
};

inline StreamAdmission admitStream(ConnectionContext& context, const HttpRequest& request) {
    using std::chrono::seconds;
    if (!request.peer.isEncrypted && !request.peer.isLoopback)
        return {errorResponse(403, "invalid_request", "TLS_REQUIRED",
                              "Tokens are not sent in the clear: use wss from other machines."),
                {},
                {}};
    auto token = request.queryItem("token");
    if (!token)
        token = request.bearerToken();
    const auto user = token ? context.accounts->userOf(*token) : std::nullopt;
    if (!user)
        return {errorResponse(401, "invalid_token", "INVALID_TOKEN",
                              "The access token is missing, not valid or expired; refresh it."),
                {},
                {}};
    auto admission = context.sessions->admit(user->id);
    if (admission.verdict == Limits::Verdict::full)
        return {retryLater(503, "SERVER_FULL", "The server has no free session; try again.", seconds(5)), {}, {}};
    if (admission.verdict == Limits::Verdict::fullForKey)
        return {retryLater(429, "TOO_MANY_SESSIONS", "This user has too many sessions open.", seconds(5)), {}, {}};
    return {std::nullopt, user->id, std::move(admission.place)};
}

/// Reads the body into the request or the receiver. Returns the answer that ends the request early.
template <class Stream>
asio::awaitable<std::optional<HttpResponse>>
readBody(Stream& stream, boost::beast::flat_buffer& buffer, RequestParser& parser, ConnectionState& state,
         HttpRequest& request, const std::unique_ptr<BodyReceiver>& receiver, boost::system::error_code& error) {
    std::unique_ptr<BodyBlock> block;
    while (!parser.is_done()) {
        if (!block)
            block = std::make_unique<BodyBlock>();
        // Every block anew, so that a body may be large but not slow.
        state.control->expireAfter(state.context->options.requestTimeout);
        parser.get().body().data = block->data();
        parser.get().body().size = block->size();
        co_await http::async_read(stream, buffer, parser, asio::redirect_error(asio::use_awaitable, error));
        if (error == http::error::need_buffer)
            error = {};
        if (error)
            co_return std::nullopt;
        const std::string_view bytes(block->data(), block->size() - parser.get().body().size);
        if (!receiver) {
            request.body.append(bytes);
        } else if (!bytes.empty()) {
            auto refusal = co_await runBlocking(state.context->blocking, state.control->strand(), [&] {
                return Router::guard<std::optional<HttpResponse>>(request, [&] { return receiver->receive(bytes); });
            });
            if (refusal)
                co_return refusal;
        }
    }
    co_return std::nullopt;
}

template <class Stream>
asio::awaitable<void> serveHttp(Stream& stream, std::shared_ptr<ConnectionState> state) {
    const auto context = state->context;
    const auto control = state->control;
    const ServerOptions& options = context->options;
    boost::beast::flat_buffer buffer;
    for (bool first = true;; first = false) {
        // One bound for waiting and for the header: a peer that sends it byte by byte gains no time.
        control->expireAfter(first ? options.requestTimeout : options.keepAliveTimeout);
        boost::system::error_code error;
        std::optional<RequestParser> parser(std::in_place);
        parser->header_limit(static_cast<uint32_t>(options.maxHeaderBytes));
        // The path decides what the body may hold. Not "none": Boost 1.74 takes that for zero.
        parser->body_limit(std::numeric_limits<uint64_t>::max());
        co_await http::async_read_header(stream, buffer, *parser, asio::redirect_error(asio::use_awaitable, error));
        control->expireAfter(options.requestTimeout);
        if (error) {
            if (const auto answer = answerTo(error); answer && co_await writeResponse(stream, *answer, 11, false))
                co_await linger(stream, control);
            co_return;
        }
        const unsigned version = parser->get().version();
        HttpRequest request = describe(parser->get(), state->peer);
        auto refusal = refusalOf(*state);

        if (!refusal && boost::beast::websocket::is_upgrade(parser->get()) && request.path == transcribePath) {
            auto admission = co_await runBlocking(context->blocking, control->strand(),
                                                  [&context, &request] { return admitStream(*context, request); });
            if (!admission.refusal && buffer.size() == 0) {
                auto upgrade = parser->release();
                // What the request held is not needed for the hours that the stream may last.
                parser.reset();
                buffer = {};
                request = {};
                auto connection = std::make_shared<WebSocketConnection<Stream>>(
                    std::move(stream), state, std::move(admission.userId), std::move(admission.place));
                co_await connection->run(std::move(upgrade));
                co_return;
            }
            refusal = admission.refusal ? admission.refusal
                                        : errorResponse(400, "invalid_request", "BAD_REQUEST",
                                                        "Frames must wait for the answer to the upgrade.");
        } else if (!refusal && request.path == transcribePath) {
            refusal = errorResponse(426, "invalid_request", "UPGRADE_REQUIRED", "This path speaks WebSocket only.");
            refusal->headers.emplace_back("Upgrade", "websocket");
        }

        Router::Match match;
        if (!refusal) {
            match = context->router.find(request);
            if (!match.route)
                refusal = std::move(match.error);
            else if (parser->content_length() && *parser->content_length() > match.route->maxBodyBytes)
                refusal = answerTo(make_error_code(http::error::body_limit));
        }
        if (refusal) {
            // The body, if any, is not read: the connection cannot be kept.
            if (co_await writeResponse(stream, context->router.present(request, std::move(*refusal)), version, false,
                                       request.method == "HEAD"))
                co_await linger(stream, control, unreadBytes(*parser));
            co_return;
        }

        request.parameter = std::move(match.parameter);
        const Router::Route& route = *match.route;
        parser->body_limit(route.maxBodyBytes);

        // Who may not send a body is told before it comes.
        std::unique_ptr<BodyReceiver> receiver;
        if (route.open) {
            using Opened = std::variant<HttpResponse, std::unique_ptr<BodyReceiver>>;
            Opened opened = co_await runBlocking(context->blocking, control->strand(), [&route, &request] {
                return Router::guard<Opened>(request, [&] { return route.open(request); });
            });
            if (auto* receiving = std::get_if<1>(&opened))
                receiver = std::move(*receiving);
            else
                refusal = std::get<0>(std::move(opened));
        }
        if (!refusal && boost::beast::iequals(parser->get()[http::field::expect], "100-continue")) {
            http::response<http::string_body> proceed(http::status::continue_, version);
            co_await http::async_write(stream, proceed, asio::redirect_error(asio::use_awaitable, error));
        }
        if (!refusal && !error)
            refusal = co_await readBody(stream, buffer, *parser, *state, request, receiver, error);
        if (error)
            refusal = answerTo(error);
        if (error || refusal) {
            // Gives its file and its place back before anybody reads the answer.
            co_await destroyBlocking(*context, control->strand(), std::move(receiver));
            if (refusal &&
                co_await writeResponse(stream, context->router.present(request, std::move(*refusal)), version, false))
                co_await linger(stream, control, unreadBytes(*parser));
            co_return;
        }

        const bool keepAlive = parser->get().keep_alive() && !context->stopping;
        Answer outcome = co_await runBlocking(
            context->blocking, control->strand(), [&route, &request, held = std::move(receiver)]() mutable {
                return Router::guard<Answer>(request, [&] { return held ? held->finish() : route.handler(request); });
            });
        HttpResponse answer;
        if (auto* later = std::get_if<LaterResponse>(&outcome)) {
            auto ready = co_await waitForAnswer(std::move(*later), context, control);
            if (!ready)
                co_return; // the client has gone
            answer = std::move(*ready);
        } else {
            answer = std::get<HttpResponse>(std::move(outcome));
        }
        control->expireAfter(options.requestTimeout);
        answer = context->router.present(request, std::move(answer));
        if (!co_await writeResponse(stream, answer, version, keepAlive))
            co_return;
        if (!keepAlive) {
            co_await linger(stream, control);
            co_return;
        }
    }
}

} // namespace quillo::server
