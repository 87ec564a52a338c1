#pragma once

#include "Foundation/Json.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace quillo::server {

/// The origin of a request.
struct Peer {
    std::string address; ///< without port
    bool isLoopback = false;
    bool isEncrypted = false;
};

struct HttpRequest {
    std::string method;
    std::string path;  ///< without the query
    std::string query; ///< without "?"
    std::string contentType;
    std::string authorization;
    std::string host;
    std::string cookie;
    std::string acceptLanguage;
    std::string fetchSite; ///< the origin of the request according to the browser (Sec-Fetch-Site)
    std::string body;
    std::string parameter; ///< the decoded value of "{...}" in the route's path
    Peer peer;

    /// A decoded query item.
    [[nodiscard]] std::optional<std::string> queryItem(const std::string& name) const;
    /// The token of "Authorization: Bearer ...".
    [[nodiscard]] std::optional<std::string> bearerToken() const;
};

struct HttpResponse {
    int status = 200;
    Json body;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string page = {}; ///< HTML, sent instead of `body` if not empty
};

/// A pending answer. `whenReady` is called once, on a thread that may block, and must call `done` once, at once or
/// later, from any thread. If it has not by the server's `answerTimeout`, `late` is sent.
struct LaterResponse {
    using Done = std::function<void(HttpResponse)>;
    std::function<void(Done done)> whenReady;
    HttpResponse late;
};

using Answer = std::variant<HttpResponse, LaterResponse>;

/// Receives the body of one request as it arrives. Called on threads that may block, one call at a time; destroyed
/// without `finish` when the client disconnects.
class BodyReceiver {
public:
    virtual ~BodyReceiver() = default;
    /// Takes the next bytes. Returning an answer ends the request: the rest of the body is not read.
    virtual std::optional<HttpResponse> receive(std::string_view bytes) = 0;
    virtual Answer finish() = 0;
};

/// An error answer: "detail" for users, "error" with the OAuth error, "code" for programs.
HttpResponse errorResponse(int status, const std::string& error, const std::string& code, const std::string& detail);

/// Like `errorResponse`, with "Retry-After".
HttpResponse retryLater(int status, const std::string& code, const std::string& detail, std::chrono::seconds after);

} // namespace quillo::server
