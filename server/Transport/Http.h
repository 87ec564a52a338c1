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

/// Where a request comes from.
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
    std::string fetchSite; ///< where a browser says the request comes from (Sec-Fetch-Site)
    std::string body;
    std::string parameter; ///< what stands where the route's path has "{...}", decoded
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
    std::string page = {}; ///< HTML, sent in place of `body` when there is any
};

/// An answer that is not known yet. `whenReady` is called once, on a thread that may block, and calls `done` once, at
/// once or later from any thread; `late` is answered when it has not by the server's `answerTimeout`.
struct LaterResponse {
    using Done = std::function<void(HttpResponse)>;
    std::function<void(Done done)> whenReady;
    HttpResponse late;
};

using Answer = std::variant<HttpResponse, LaterResponse>;

/// Takes the body of one request while it arrives. Called on threads that may block, one call at a time; destroyed
/// without `finish` when the client goes away.
class BodyReceiver {
public:
    virtual ~BodyReceiver() = default;
    /// The next bytes. An answer ends the request: the rest of the body is not read.
    virtual std::optional<HttpResponse> receive(std::string_view bytes) = 0;
    virtual Answer finish() = 0;
};

/// An answer that says what went wrong: "detail" for people, "error" with the OAuth word, "code" for programs.
HttpResponse errorResponse(int status, const std::string& error, const std::string& code, const std::string& detail);

/// As `errorResponse`, with "Retry-After".
HttpResponse retryLater(int status, const std::string& code, const std::string& detail, std::chrono::seconds after);

} // namespace quillo::server
