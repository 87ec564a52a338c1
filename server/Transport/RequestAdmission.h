#pragma once

#include "Transport/ConnectionContext.h"

#include <boost/beast/http/message.hpp>

#include <optional>

namespace quillo::server {

constexpr const char* transcribePath = "/ws/v3/transcribe";

/// What a header says of its request. Where it came through one of `trustedProxies`, the peer is the proxy's client, as
/// X-Forwarded-For and X-Forwarded-Proto name it.
HttpRequest describe(const boost::beast::http::request_header<>& header, const Peer& peer,
                     const std::vector<std::string>& trustedProxies);

/// The refusal of whatever this connection asks for; empty when the request may be looked at.
std::optional<HttpResponse> refusalOf(const ConnectionState& state, const HttpRequest& request);

/// Answers a failed read of a request; empty when there is nobody left to answer.
std::optional<HttpResponse> answerTo(const boost::system::error_code& error);

/// Who may stream, or why not.
struct StreamAdmission {
    std::optional<HttpResponse> refusal;
    SignIn signIn = {};
    Limits::Place place = {};
};

/// Judges the upgrade of a connection. Touches the disk.
StreamAdmission admitStream(ConnectionContext& context, const HttpRequest& request);

} // namespace quillo::server
