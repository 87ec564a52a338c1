#pragma once

#include <string>

namespace quillo::server {

/// The style of every page, to stand in a style element as it is.
const std::string& pageStyle();

/// The icon of the program as an SVG element, and as the URL of it.
const std::string& pageIcon();
const std::string& pageIconUrl();

/// The Content-Security-Policy of every page: nothing but this style and this icon, no script, no frame around it, and
/// forms that go to this server alone. Chromium applies form-action to what the answer to a form leads to as well, so
/// the scheme of the way back to the application is named there.
const std::string& pagePolicy();

} // namespace quillo::server
