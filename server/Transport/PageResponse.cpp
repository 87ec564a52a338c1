#include "Transport/PageResponse.h"

#include "Pages/PageStyle.h"
#include "Pages/SignInPages.h"

namespace quillo::server {

HttpResponse pageResponse(int status, std::string page) {
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
    return response;
}

HttpResponse errorPage(const HttpRequest& request, const HttpResponse& error) {
    const auto language = pageLanguage(request.acceptLanguage);
    const bool isOurs = error.status >= 500;
    const auto text = isOurs                ? PageText::serverFailed
                      : error.status == 404 ? PageText::notFound
                      : error.status == 421 ? PageText::wrongAddress
                                            : PageText::requestRefused;
    const auto title = isOurs                ? PageText::serverFailedHeading
                       : error.status == 421 ? PageText::wrongAddressHeading
                                             : PageText::failedHeading;
    auto response =
        pageResponse(error.status, messagePage(pageText(title, language), pageText(text, language), language));
    response.headers.insert(response.headers.end(), error.headers.begin(), error.headers.end());
    return response;
}

HttpResponse redirectResponse(const HttpRequest& request, const std::string& url) {
    const auto language = pageLanguage(request.acceptLanguage);
    auto response = pageResponse(303, messagePage(pageText(PageText::backButton, language),
                                                  pageText(PageText::backToQuillo, language), language));
    response.headers.emplace_back("Location", url);
    return response;
}

} // namespace quillo::server
