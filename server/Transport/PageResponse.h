#pragma once

#include "Transport/Http.h"

#include <string>

namespace quillo::server {

/// A page with its security headers. `page` is complete HTML.
HttpResponse pageResponse(int status, std::string page);

/// An error of the server as a page.
HttpResponse errorPage(const HttpRequest& request, const HttpResponse& error);

/// Sends the browser to `url`.
HttpResponse redirectResponse(const HttpRequest& request, const std::string& url);

} // namespace quillo::server
