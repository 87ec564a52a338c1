#include "Pages/Html.h"

#include "Foundation/Encoding.h"

namespace quillo::server {
namespace {

constexpr std::string_view replacement = "\xef\xbf\xbd";

/// The number of bytes of the character at `at`; 0 when it is invalid.
size_t lengthAt(std::string_view text, size_t at) {
    for (size_t length = 1; length <= 4 && at + length <= text.size(); ++length) {
        if (countCharacters(text.substr(at, length)) == 1)
            return length;
    }
    return 0;
}

} // namespace

std::string escapeHtml(std::string_view text) {
    std::string html;
    html.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        const size_t length = lengthAt(text, at);
        const auto character = text.substr(at, std::max<size_t>(1, length));
        at += character.size();
        if (length == 0 || hasControlCharacters(character))
            html += replacement;
        else if (character == "&")
            html += "&amp;";
        else if (character == "<")
            html += "&lt;";
        else if (character == ">")
            html += "&gt;";
        else if (character == "\"")
            html += "&quot;";
        else if (character == "'")
            html += "&#39;";
        else
            html += character;
    }
    return html;
}

} // namespace quillo::server
