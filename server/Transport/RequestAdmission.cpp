#include "Transport/RequestAdmission.h"

#include <boost/asio/ip/address.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/field.hpp>

#include <algorithm>

namespace quillo::server {
namespace {

namespace http = boost::beast::http;
using std::chrono::seconds;

std::string toString(boost::beast::string_view text) { return {text.data(), text.size()}; }

std::string trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(" \t");
    const auto end = text.find_last_not_of(" \t");
    return begin == std::string_view::npos ? std::string() : std::string(text.substr(begin, end - begin + 1));
}

/// The nearest address that is not a proxy's; addresses left of it come from the client. Empty when the request was not
/// forwarded or contains no address.
std::string forwardedFor(const http::request_header<>& header, const std::vector<std::string>& trustedProxies) {
    std::string all;
    const auto [first, last] = header.equal_range("X-Forwarded-For");
    for (auto field = first; field != last; ++field)
        all += (all.empty() ? "" : ",") + toString(field->value());
    while (!all.empty()) {
        const auto comma = all.rfind(',');
        const std::string text = trimmed(std::string_view(all).substr(comma == std::string::npos ? 0 : comma + 1));
        all.resize(comma == std::string::npos ? 0 : comma);
        boost::system::error_code error;
        const auto address = asio::ip::make_address(text, error);
        if (error)
            return {};
        if (std::ranges::find(trustedProxies, address.to_string()) == trustedProxies.end())
            return address.to_string();
    }
    return {};
}

Peer clientOf(const http::request_header<>& header, const Peer& peer, const std::vector<std::string>& trustedProxies) {
    if (std::ranges::find(trustedProxies, peer.address) == trustedProxies.end())
        return peer;
    const std::string address = forwardedFor(header, trustedProxies);
    if (address.empty())
        return peer; // requested by a program on the proxy's own machine
    const auto scheme = header["X-Forwarded-Proto"];
    return {address, false, scheme.empty() ? peer.isEncrypted : scheme == "https"};
}

/// A name that a plain request over loopback may use. Another name can belong to a site whose name server resolves it
/// to this machine (DNS rebinding), so that its pages could use this server as their own.
bool isOwnName(std::string_view host, const std::vector<std::string>& hosts) {
    const bool isV6 = host.starts_with('[');
    const auto end = isV6 ? host.find(']') : host.find(':');
    const auto name = isV6 && end != std::string_view::npos ? host.substr(0, end + 1) : host.substr(0, end);
    return name == "127.0.0.1" || name == "localhost" || name == "[::1]" ||
           std::ranges::find(hosts, name) != hosts.end();
}

} // namespace

HttpRequest describe(const http::request_header<>& header, const Peer& peer,
                     const std::vector<std::string>& trustedProxies) {
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
    request.peer = clientOf(header, peer, trustedProxies);
    return request;
}

std::optional<HttpResponse> refusalOf(const ConnectionState& state, const HttpRequest& request) {
    if (state.isOtherUser)
        return errorResponse(403, "access_denied", "OTHER_USER", "This server serves only the user who started it.");
    if (state.admission.verdict == Limits::Verdict::full)
        return retryLater(503, "SERVER_FULL", "The server has no free connection; try again.", seconds(5));
    if (state.admission.verdict == Limits::Verdict::fullForKey)
        return retryLater(429, "TOO_MANY_CONNECTIONS", "Too many connections from this address.", seconds(5));
    if (request.peer.isLoopback && !request.peer.isEncrypted && !isOwnName(request.host, state.context->options.hosts))
        return errorResponse(421, "invalid_request", "WRONG_HOST",
                             "This server is not known by the name in the request: ask for localhost, or start the "
                             "server with --host and that name.");
    return std::nullopt;
}

std::optional<HttpResponse> answerTo(const boost::system::error_code& error) {
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

StreamAdmission admitStream(ConnectionContext& context, const HttpRequest& request) {
    if (!request.peer.isEncrypted && !request.peer.isLoopback)
        return {errorResponse(403, "invalid_request", "TLS_REQUIRED",
                              "Tokens are not sent in the clear: use wss from other machines.")};
    if (context.stopping)
        return {retryLater(503, "SERVER_STOPPING", "The server is stopping; try again.", seconds(5))};
    auto token = request.queryItem("token");
    if (!token)
        token = request.bearerToken();
    auto signIn = token ? context.accounts->signInOf(*token) : std::nullopt;
    if (!signIn)
        return {errorResponse(401, "invalid_token", "INVALID_TOKEN",
                              "The access token is missing, not valid or expired; refresh it.")};
    auto admission = context.sessions->admit(signIn->user.id);
    if (admission.verdict == Limits::Verdict::full)
        return {retryLater(503, "SERVER_FULL", "The server has no free session; try again.", seconds(5))};
    if (admission.verdict == Limits::Verdict::fullForKey)
        return {retryLater(429, "TOO_MANY_SESSIONS", "This user has too many sessions open.", seconds(5))};
    return {std::nullopt, std::move(*signIn), std::move(admission.place)};
}

} // namespace quillo::server
