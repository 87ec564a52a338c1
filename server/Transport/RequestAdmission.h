#pragma once

#include "Transport/ConnectionContext.h"

#include <boost/beast/http/message.hpp>

#include <optional>

namespace quillo::server {

constexpr const char* transcribePath = "/ws/v3/transcribe";

/// The request described by a header. If it came through one of `trustedProxies`, the peer is the proxy's client, as
/// given by X-Forwarded-For and X-Forwarded-Proto.
HttpRequest describe(const boost::beast::http::request_header<>& header, const Peer& peer,
                     const std::vector<std::string>& trustedProxies);

/// The refusal of any request on this connection; empty when the request may be handled.
std::optional<HttpResponse> refusalOf(const ConnectionState& state, const HttpRequest& request);

/// The answer to a failed read of a request; empty when the client is gone.
std::optional<HttpResponse> answerTo(const boost::system::error_code& error);

/// The user who may stream, or the refusal.
struct StreamAdmission {
    std::optional<HttpResponse> refusal;
    SignIn signIn = {};
    Limits::Place place = {};
};

/// Decides about the upgrade of a connection. Accesses the disk.
StreamAdmission admitStream(ConnectionContext& context, const HttpRequest& request);

} // namespace quillo::server
