#include "Transport/PageResponse.h"

#include "Pages/PageStyle.h"
#include "Pages/SignInPages.h"

#include <algorithm>

namespace quillo::server {

HttpResponse pageResponse(const HttpRequest& request, int status, std::string page) {
    HttpResponse response;
    response.status = status;
    response.page = std::move(page);
    response.headers = {
        {"Content-Security-Policy", pagePolicy()},
        {"X-Content-Type-Options", "nosniff"},
        {"X-Frame-Options", "DENY"},
        {"Referrer-Policy", "no-referrer"},
        {"Cross-Origin-Opener-Policy", "same-origin"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
    };
    // Not for loopback names: it would hold for every other server on this machine too.
    if (request.peer.isEncrypted && !request.peer.isLoopback)
        response.headers.emplace_back("Strict-Transport-Security", "max-age=31536000");
    return response;
}

HttpResponse errorPage(const HttpRequest& request, const HttpResponse& error) {
    const auto language = pageLanguage(request.acceptLanguage);
    const bool isOurs = error.status >= 500;
    const auto text = isOurs                ? PageText::serverFailed
                      : error.status == 404 ? PageText::notFound
                                            : PageText::requestRefused;
    const auto title = isOurs ? PageText::serverFailedHeading : PageText::failedHeading;
    auto response =
        pageResponse(request, error.status, messagePage(pageText(title, language), pageText(text, language), language));
    response.headers.insert(response.headers.end(), error.headers.begin(), error.headers.end());
    return response;
}

HttpResponse redirectResponse(const HttpRequest& request, const std::string& url) {
    const auto language = pageLanguage(request.acceptLanguage);
    auto response = pageResponse(
        request, 303,
        messagePage(pageText(PageText::backButton, language), pageText(PageText::backToQuillo, language), language));
    response.headers.emplace_back("Location", url);
    return response;
}

bool isForeignHost(const HttpRequest& request, const std::vector<std::string>& hosts) {
    if (request.peer.isEncrypted)
        return false;
    const std::string_view host = request.host;
    const bool isV6 = host.starts_with('[');
    const auto end = isV6 ? host.find(']') : host.find(':');
    const auto name = isV6 && end != std::string_view::npos ? host.substr(0, end + 1) : host.substr(0, end);
    if (name == "127.0.0.1" || name == "localhost" || name == "[::1]")
        return false;
    return std::ranges::find(hosts, name) == hosts.end();
}

} // namespace quillo::server
