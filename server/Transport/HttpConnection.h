#pragma once

#include "Transport/HttpExchange.h"
#include "Transport/Waiting.h"
#include "Transport/WebSocketConnection.h"

namespace quillo::server {

/// Detaches the deadline from the stream before the stream closes the socket.
class ReleaseOnExit {
public:
    explicit ReleaseOnExit(std::shared_ptr<ConnectionControl> control) : m_control(std::move(control)) {}
    ~ReleaseOnExit() { m_control->release(); }
    ReleaseOnExit(const ReleaseOnExit&) = delete;
    ReleaseOnExit& operator=(const ReleaseOnExit&) = delete;

private:
    std::shared_ptr<ConnectionControl> m_control;
};

/// Serves the requests of one connection until one ends it or turns it into a streaming socket.
template <class Stream>
class HttpConnection {
public:
    /// `stream` must outlive it, and is moved from when it becomes a streaming socket.
    HttpConnection(Stream& stream, std::shared_ptr<ConnectionState> state)
        : m_stream(stream), m_state(std::move(state)) {}

    asio::awaitable<void> run() {
        auto next = co_await serveRequest(options().requestTimeout);
        while (next == Next::request)
            next = co_await serveRequest(options().keepAliveTimeout);
        if (next != Next::stream)
            co_return;
        // Free the request, which is not needed for the hours that the stream may last.
        m_buffer = {};
        const auto streaming = std::move(m_streaming);
        co_await streaming->run(std::move(m_upgrade));
    }

private:
    using Exchange = HttpExchange<Stream>;
    using Streaming = WebSocketConnection<Stream>;
    enum class Next { request, stream, over };

    [[nodiscard]] ConnectionContext& context() const { return *m_state->context; }
    [[nodiscard]] const ServerOptions& options() const { return context().options; }
    [[nodiscard]] asio::any_io_executor strand() const { return m_state->control->strand(); }

    asio::awaitable<Next> serveRequest(std::chrono::milliseconds patience) {
        Exchange exchange(m_stream, m_buffer, m_state);
        if (!co_await exchange.readHeader(patience))
            co_return Next::over;
        auto refusal = refusalOf(*m_state, exchange.request);
        if (!refusal && exchange.request.path == transcribePath) {
            refusal = co_await upgrade(exchange);
            if (!refusal)
                co_return Next::stream;
        }
        Router::Match match;
        if (!refusal) {
            match = context().router.find(exchange.request);
            if (!match.route)
                refusal = std::move(match.error);
            else if (!exchange.limitBody(match.route->maxBodyBytes))
                refusal = answerTo(make_error_code(http::error::body_limit));
        }
        if (refusal) {
            co_await exchange.refuse(std::move(*refusal));
            co_return Next::over;
        }
        exchange.request.parameter = std::move(match.parameter);
        co_return co_await respond(exchange, *match.route) ? Next::request : Next::over;
    }

    /// Turns the connection into a streaming socket, or answers why not.
    asio::awaitable<std::optional<HttpResponse>> upgrade(Exchange& exchange) {
        if (!exchange.isUpgrade()) {
            auto refusal =
                errorResponse(426, "invalid_request", "UPGRADE_REQUIRED", "This path speaks WebSocket only.");
            refusal.headers.emplace_back("Upgrade", "websocket");
            co_return refusal;
        }
        auto admission = co_await runBlocking(context().streamWork, strand(),
                                              [this, &exchange] { return admitStream(context(), exchange.request); });
        if (admission.refusal)
            co_return std::move(admission.refusal);
        if (exchange.hasMore())
            co_return errorResponse(400, "invalid_request", "BAD_REQUEST",
                                    "Frames must wait for the answer to the upgrade.");
        m_upgrade = exchange.releaseUpgrade();
        m_streaming = std::make_shared<Streaming>(std::move(m_stream), m_state, std::move(admission.signIn),
                                                  std::move(admission.place));
        co_return std::nullopt;
    }

    /// Reads the body and answers; true when the connection can carry another request.
    asio::awaitable<bool> respond(Exchange& exchange, const Router::Route& route) {
        std::unique_ptr<BodyReceiver> receiver;
        // Reject unauthorised requests before reading the body.
        auto refusal = co_await open(exchange, route, receiver);
        if (!refusal)
            refusal = co_await exchange.readBody(receiver.get());
        if (refusal || exchange.failed()) {
            // Release its file and its place before the peer reads the answer.
            co_await destroyBlocking(context(), strand(), std::move(receiver));
            if (refusal)
                co_await exchange.refuse(std::move(*refusal));
            co_return false;
        }
        auto answer = co_await handle(exchange, route, std::move(receiver));
        if (!answer)
            co_return false; // the client has gone
        co_return co_await exchange.answer(std::move(*answer), exchange.wantsKeepAlive() && !context().stopping);
    }

    asio::awaitable<std::optional<HttpResponse>> open(Exchange& exchange, const Router::Route& route,
                                                      std::unique_ptr<BodyReceiver>& receiver) {
        if (!route.open)
            co_return std::nullopt;
        using Opened = std::variant<HttpResponse, std::unique_ptr<BodyReceiver>>;
        Opened opened = co_await runBlocking(context().uploadWork, strand(), [&route, &exchange] {
            return Router::guard<Opened>(exchange.request, [&] { return route.open(exchange.request); });
        });
        if (auto* refused = std::get_if<HttpResponse>(&opened))
            co_return std::move(*refused);
        receiver = std::get<1>(std::move(opened));
        co_return std::nullopt;
    }

    asio::awaitable<std::optional<HttpResponse>> handle(Exchange& exchange, const Router::Route& route,
                                                        std::unique_ptr<BodyReceiver> receiver) {
        auto& threads = receiver ? context().uploadWork : context().requestWork;
        if (receiver) // an upload is synchronised to the disk, which may take some time
            m_state->control->expireAfter(options().answerTimeout + options().requestTimeout);
        Answer outcome =
            co_await runBlocking(threads, strand(), [&route, &exchange, held = std::move(receiver)]() mutable {
                return Router::guard<Answer>(exchange.request,
                                             [&] { return held ? held->finish() : route.handler(exchange.request); });
            });
        if (auto* later = std::get_if<LaterResponse>(&outcome))
            co_return co_await waitForAnswer(std::move(*later), m_state->context, m_state->control);
        co_return std::get<HttpResponse>(std::move(outcome));
    }

    Stream& m_stream;
    std::shared_ptr<ConnectionState> m_state;
    boost::beast::flat_buffer m_buffer;
    typename Streaming::Upgrade m_upgrade;
    std::shared_ptr<Streaming> m_streaming;
};

template <class Stream>
asio::awaitable<void> serveRequests(Stream& stream, std::shared_ptr<ConnectionState> state) {
    HttpConnection<Stream> connection(stream, std::move(state));
    co_await connection.run();
}

} // namespace quillo::server
