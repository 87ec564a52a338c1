#pragma once

#include "Transport/Http.h"

#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace quillo::server {

/// Finds the handler of a method and path. Handlers run on threads that may block, several at once; an exception
/// becomes a 500 answer.
class Router {
public:
    using Handler = std::function<Answer(const HttpRequest&)>;

    /// Begins to receive the body of a request, or refuses it.
    using Opener = std::function<std::variant<HttpResponse, std::unique_ptr<BodyReceiver>>(const HttpRequest&)>;

    struct Route {
        Handler handler;
        /// Instead of `handler`, for bodies that are too large for the memory.
        Opener open = {};
        uint64_t maxBodyBytes = uint64_t{64} * 1024;
        /// Other content types are refused with 415; empty accepts all.
        std::string contentType = "application/json";
        /// Answered also without TLS from another machine, because it contains no secret.
        bool isPublic = false;
        /// Requested by a browser, so errors are shown as pages.
        bool isPage = false;
    };

    /// A part of `path` in braces, as in "/tasks/{id}", matches any text without a slash.
    void add(const std::string& method, const std::string& path, Route route);

    /// The route, or the error to answer: 403 without TLS, 404, 405 with "Allow", 415.
    struct Match {
        const Route* route = nullptr;
        HttpResponse error;
        std::string parameter = {};
    };
    [[nodiscard]] Match find(const HttpRequest& request) const;

    /// How the errors of pages are shown.
    using ErrorPage = std::function<HttpResponse(const HttpRequest&, const HttpResponse& error)>;
    void setErrorPage(ErrorPage page) { m_errorPage = std::move(page); }
    /// The answer in the form that the requester can read.
    [[nodiscard]] HttpResponse present(const HttpRequest& request, HttpResponse answer) const;

    /// Runs `call`, which answers `request`, and turns an exception into an answer.
    template <class Result>
    static Result guard(const HttpRequest& request, const std::function<Result()>& call) {
        try {
            return call();
        } catch (const std::exception& error) {
            return failure(request, error);
        }
    }

private:
    using Methods = std::map<std::string, Route>;
    /// A path with one part in braces.
    struct Pattern {
        std::string before;
        std::string after;
        Methods methods;
    };

    static HttpResponse failure(const HttpRequest& request, const std::exception& error);
    [[nodiscard]] const Methods* methodsOf(const std::string& path, std::string& parameter) const;

    std::map<std::string, Methods> m_routes;
    std::vector<Pattern> m_patterns;
    ErrorPage m_errorPage;
};

} // namespace quillo::server
