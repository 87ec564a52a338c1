#pragma once

#include "Transport/Http.h"

#include <functional>
#include <map>
#include <string>

namespace quillo::server {

/// Finds the handler of a method and path. Handlers run on threads that may block, several at once; what they throw
/// becomes a 500 answer.
class Router {
public:
    using Handler = std::function<HttpResponse(const HttpRequest&)>;

    struct Route {
        Handler handler;
        size_t maxBodyBytes = size_t{64} * 1024;
        /// Refused with 415 when a body comes as anything else; empty takes everything.
        std::string contentType = "application/json";
        /// Answered also without TLS from another machine: holds no secret.
        bool isPublic = false;
    };

    void add(const std::string& method, const std::string& path, Route route);

    /// The route, or the error to answer: 403 without TLS, 404, 405 with "Allow", 415.
    struct Match {
        const Route* route = nullptr;
        HttpResponse error;
    };
    [[nodiscard]] Match find(const HttpRequest& request) const;

    /// Runs the handler; never throws.
    static HttpResponse run(const Route& route, const HttpRequest& request);

private:
    std::map<std::string, std::map<std::string, Route>> routes_;
};

} // namespace quillo::server
