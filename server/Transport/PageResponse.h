#pragma once

#include "Transport/Http.h"

#include <string>

namespace quillo::server {

/// A page with the headers that guard it. `page` is complete HTML.
HttpResponse pageResponse(const HttpRequest& request, int status, std::string page);

/// An error of the server as a page.
HttpResponse errorPage(const HttpRequest& request, const HttpResponse& error);

/// Sends the browser to `url`.
HttpResponse redirectResponse(const HttpRequest& request, const std::string& url);

/// True for a page asked for in the clear under a name that is neither a loopback one nor in `hosts`: the browser was
/// led here by a name server that resolves a foreign site to this machine (DNS rebinding), so that the site may act as
/// this page.
bool isForeignHost(const HttpRequest& request, const std::vector<std::string>& hosts);

} // namespace quillo::server
