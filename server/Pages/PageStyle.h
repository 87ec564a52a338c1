#pragma once

#include <string>

namespace quillo::server {

/// The style of every page, for a style element.
const std::string& pageStyle();

/// The icon of the program as an SVG element, and as the URL of it.
const std::string& pageIcon();
const std::string& pageIconUrl();

/// The Content-Security-Policy of every page: only this style and this icon, no script, no embedding in frames, and
/// forms only to this server. Chromium applies form-action also to redirects after a form, so the scheme of the
/// application's callback is listed.
const std::string& pagePolicy();

} // namespace quillo::server
