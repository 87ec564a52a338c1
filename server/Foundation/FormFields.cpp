#include "Foundation/FormFields.h"

#include "Foundation/Encoding.h"

#include <algorithm>

namespace quillo::server {
namespace {

bool isHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

std::optional<std::string> decode(std::string_view text) {
    for (size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 3)) {
        if (at + 2 >= text.size() || !isHexDigit(text[at + 1]) || !isHexDigit(text[at + 2]))
            return std::nullopt;
    }
    std::string plain(text);
    std::ranges::replace(plain, '+', ' ');
    return decodePercent(plain);
}

} // namespace

std::optional<FormFields> FormFields::parse(std::string_view text) {
    FormFields form;
    while (!text.empty()) {
        const auto item = text.substr(0, text.find('&'));
        text.remove_prefix(std::min(text.size(), item.size() + 1));
        if (item.empty())
            continue;
        const auto separator = item.find('=');
        auto name = decode(item.substr(0, separator));
        auto value = separator == std::string_view::npos ? std::string() : decode(item.substr(separator + 1));
        if (!name || !value || form.m_fields.size() == maxFields)
            return std::nullopt;
        form.m_fields.emplace_back(std::move(*name), std::move(*value));
    }
    return form;
}

std::optional<std::string> FormFields::find(std::string_view name) const {
    const auto found = std::ranges::find(m_fields, name, &std::pair<std::string, std::string>::first);
    if (found == m_fields.end())
        return std::nullopt;
    return found->second;
}

bool FormFields::isRepeated(std::string_view name) const {
    return std::ranges::count(m_fields, name, &std::pair<std::string, std::string>::first) > 1;
}

} // namespace quillo::server
