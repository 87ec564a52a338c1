#include "Transport/Router.h"

#include "Foundation/Encoding.h"
#include "Foundation/Log.h"

#include <algorithm>
#include <strings.h>

namespace quillo::server {
namespace {

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    return left.size() == right.size() && ::strncasecmp(left.data(), right.data(), left.size()) == 0;
}

bool isMediaType(std::string_view header, std::string_view type) {
    header = header.substr(0, header.find(';'));
    while (!header.empty() && header.back() == ' ')
        header.remove_suffix(1);
    return equalsIgnoringCase(header, type);
}

} // namespace

std::optional<std::string> HttpRequest::queryItem(const std::string& name) const {
    std::string_view rest = query;
    while (!rest.empty()) {
        const auto item = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(rest.size(), item.size() + 1));
        const auto separator = item.find('=');
        if (separator != std::string_view::npos && decodePercent(item.substr(0, separator)) == name)
            return decodePercent(item.substr(separator + 1));
    }
    return std::nullopt;
}

std::optional<std::string> HttpRequest::bearerToken() const {
    const std::string_view text = authorization;
    if (text.size() <= 7 || !equalsIgnoringCase(text.substr(0, 7), "Bearer "))
        return std::nullopt;
    return std::string(text.substr(7));
}

HttpResponse errorResponse(int status, const std::string& error, const std::string& code, const std::string& detail) {
    return {status, Json{{"detail", detail}, {"error", error}, {"code", code}}, {}};
}

HttpResponse retryLater(int status, const std::string& code, const std::string& detail, std::chrono::seconds after) {
    HttpResponse response = errorResponse(status, "temporarily_unavailable", code, detail);
    response.headers.emplace_back("Retry-After", std::to_string(after.count()));
    return response;
}

void Router::add(const std::string& method, const std::string& path, Route route) {
    const auto open = path.find('{');
    if (open == std::string::npos) {
        m_routes[path][method] = std::move(route);
        return;
    }
    const std::string before = path.substr(0, open);
    const std::string after = path.substr(path.find('}') + 1);
    for (Pattern& pattern : m_patterns) {
        if (pattern.before == before && pattern.after == after) {
            pattern.methods[method] = std::move(route);
            return;
        }
    }
    m_patterns.push_back({before, after, {}});
    m_patterns.back().methods[method] = std::move(route);
}

const Router::Methods* Router::methodsOf(const std::string& path, std::string& parameter) const {
    if (const auto found = m_routes.find(path); found != m_routes.end())
        return &found->second;
    for (const Pattern& pattern : m_patterns) {
        if (path.size() <= pattern.before.size() + pattern.after.size() || !path.starts_with(pattern.before) ||
            !path.ends_with(pattern.after))
            continue;
        const auto between =
            path.substr(pattern.before.size(), path.size() - pattern.before.size() - pattern.after.size());
        if (between.find('/') != std::string::npos)
            continue;
        parameter = decodePercent(between);
        return &pattern.methods;
    }
    return nullptr;
}

Router::Match Router::find(const HttpRequest& request) const {
    std::string parameter;
    const Methods* methods = methodsOf(request.path, parameter);
    if (!methods)
        return {nullptr, errorResponse(404, "not_found", "NOT_FOUND", "There is nothing at this path.")};
    const auto method = methods->find(request.method);
    if (method == methods->end()) {
        Match match{nullptr, errorResponse(405, "method_not_allowed", "METHOD_NOT_ALLOWED",
                                           "This path does not answer this method.")};
        std::string allowed;
        for (const auto& [name, route] : *methods)
            allowed += (allowed.empty() ? "" : ", ") + name;
        match.error.headers.emplace_back("Allow", allowed);
        return match;
    }
    const Route& route = method->second;
    if (!route.isPublic && !request.peer.isEncrypted && !request.peer.isLoopback)
        return {nullptr, errorResponse(403, "invalid_request", "TLS_REQUIRED",
                                       "Tokens are not sent in the clear: use https from other machines.")};
    if (request.method == "POST" && !route.contentType.empty() && !isMediaType(request.contentType, route.contentType))
        return {nullptr, errorResponse(415, "invalid_request", "UNSUPPORTED_MEDIA_TYPE",
                                       "The body must be sent as " + route.contentType + ".")};
    return {&route, {}, std::move(parameter)};
}

HttpResponse Router::present(const HttpRequest& request, HttpResponse answer) const {
    if (!answer.page.empty() || !m_errorPage)
        return answer;
    std::string parameter;
    const Methods* methods = methodsOf(request.path, parameter);
    const bool isPage =
        methods && std::ranges::any_of(*methods, [](const auto& method) { return method.second.isPage; });
    return isPage ? m_errorPage(request, answer) : answer;
}

HttpResponse Router::failure(const HttpRequest& request, const std::exception& error) {
    log(LogLevel::error, "http", request.method + " " + request.path + " failed: " + error.what());
    return errorResponse(500, "server_error", "INTERNAL_ERROR", "The server failed on this request; its log says why.");
}

} // namespace quillo::server
