#pragma once

#include "Foundation/Json.h"

#include <chrono>
#include <optional>
#include <string>
#include <utility>
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
    std::string body;
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
};

/// An answer that says what went wrong: "detail" for people, "error" with the OAuth word, "code" for programs.
HttpResponse errorResponse(int status, const std::string& error, const std::string& code, const std::string& detail);

/// As `errorResponse`, with "Retry-After".
HttpResponse retryLater(int status, const std::string& code, const std::string& detail, std::chrono::seconds after);

} // namespace quillo::server
