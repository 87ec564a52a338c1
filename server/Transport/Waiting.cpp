#include "Transport/Waiting.h"

#include "Transport/RunBlocking.h"

#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace quillo::server {
namespace {

/// How often to check whether the client is still connected.
constexpr auto lookInterval = std::chrono::seconds(1);

/// Shared by the waiting connection and the answering thread.
struct Pending {
    explicit Pending(const asio::any_io_executor& strand) : timer(strand) {}
    asio::steady_timer timer;
    std::optional<HttpResponse> response;
};

} // namespace

asio::awaitable<std::optional<HttpResponse>> waitForAnswer(LaterResponse later,
                                                           std::shared_ptr<ConnectionContext> context,
                                                           std::shared_ptr<ConnectionControl> control) {
    const auto pending = std::make_shared<Pending>(control->strand());
    const auto done = [pending, strand = control->strand()](HttpResponse response) {
        asio::post(strand, [pending, response = std::move(response)]() mutable {
            pending->response = std::move(response);
            pending->timer.cancel();
        });
    };
    co_await runBlocking(context->requestWork, control->strand(), [&later, &done] {
        later.whenReady(done);
        return true;
    });
    control->onRequest([pending, control](ConnectionControl::Request request) {
        if (request != ConnectionControl::Request::stop)
            return;
        pending->timer.cancel();
        control->cut();
    });
    const auto end = ConnectionControl::Clock::now() + context->options.answerTimeout;
    boost::system::error_code ignored;
    while (!pending->response && ConnectionControl::Clock::now() < end) {
        if (control->peerHasClosed())
            co_return std::nullopt;
        // Without its own deadline the wait would be cut like a slow request.
        control->expireAfter(2 * lookInterval + context->options.requestTimeout);
        pending->timer.expires_after(
            std::min<ConnectionControl::Clock::duration>(lookInterval, end - ConnectionControl::Clock::now()));
        co_await pending->timer.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
    }
    control->onRequest({});
    if (!pending->response)
        co_return std::move(later.late);
    co_return std::move(pending->response);
}

asio::awaitable<void> destroyBlocking(ConnectionContext& context, asio::any_io_executor strand,
                                      std::unique_ptr<BodyReceiver> receiver) {
    if (!receiver)
        co_return;
    co_await runBlocking(context.uploadWork, strand, [&receiver] {
        receiver.reset();
        return true;
    });
}

} // namespace quillo::server
