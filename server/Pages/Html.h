#pragma once

#include <string>
#include <string_view>

namespace quillo::server {

/// Text as the content of an element or of a quoted attribute. Invalid UTF-8 and control characters become replacement
/// characters.
std::string escapeHtml(std::string_view text);

} // namespace quillo::server
