#include "Foundation/Json.h"

#include <stdexcept>

namespace quillo::server {
namespace {

/// Counts brackets outside strings. For text that is not JSON the result does not matter, because the parser refuses
/// it.
bool nestsWithin(std::string_view text, size_t maxDepth) {
    size_t depth = 0;
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '{' || c == '[') {
            if (++depth > maxDepth)
                return false;
        } else if ((c == '}' || c == ']') && depth > 0) {
            --depth;
        }
    }
    return true;
}

const Json* member(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() || found->is_null() ? nullptr : &*found;
}

[[noreturn]] void wrongType(const char* key, const char* wanted) {
    throw std::invalid_argument(std::string("\"") + key + "\" must be " + wanted);
}

} // namespace

std::optional<Json> parseJson(std::string_view text, size_t maxDepth) {
    if (!nestsWithin(text, maxDepth))
        return std::nullopt;
    Json value = Json::parse(text, nullptr, false);
    if (value.is_discarded())
        return std::nullopt;
    return value;
}

std::string toText(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

std::optional<std::string> optionalString(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (!value)
        return std::nullopt;
    if (!value->is_string())
        wrongType(key, "a string");
    return value->get<std::string>();
}

std::optional<double> optionalNumber(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (!value)
        return std::nullopt;
    if (!value->is_number())
        wrongType(key, "a number");
    return value->get<double>();
}

std::optional<bool> optionalBool(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (!value)
        return std::nullopt;
    if (!value->is_boolean())
        wrongType(key, "true or false");
    return value->get<bool>();
}

} // namespace quillo::server
