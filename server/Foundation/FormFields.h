#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quillo::server {

/// The fields of an application/x-www-form-urlencoded text: a query or the body of a form (URL Standard section 5.1).
class FormFields {
public:
    /// Far more than our forms have.
    static constexpr size_t maxFields = 64;

    /// Empty when an escape is broken or there are more than `maxFields`. Values may contain any bytes.
    static std::optional<FormFields> parse(std::string_view text);

    /// The first value of a field; empty when it is absent.
    [[nodiscard]] std::optional<std::string> find(std::string_view name) const;
    /// Like `find`, with an empty text for an absent field.
    [[nodiscard]] std::string value(std::string_view name) const { return find(name).value_or(std::string()); }
    [[nodiscard]] bool isRepeated(std::string_view name) const;

private:
    std::vector<std::pair<std::string, std::string>> m_fields;
};

} // namespace quillo::server
