#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace quillo::server {

using Json = nlohmann::ordered_json;

/// Our messages nest less deeply; deeper ones are refused before any memory is allocated for them.
constexpr size_t maxJsonDepth = 16;

/// Parses text from outside. Empty when it is not JSON, is not valid UTF-8 or nests deeper than `maxDepth`.
std::optional<Json> parseJson(std::string_view text, size_t maxDepth = maxJsonDepth);

/// Compact text; bytes that are not UTF-8 become the replacement character.
std::string toText(const Json& value);

/// The member `key` of an object as a string, number, ...; empty when it is absent or null. Throws
/// std::invalid_argument naming the key when it has another type.
std::optional<std::string> optionalString(const Json& object, const char* key);
std::optional<double> optionalNumber(const Json& object, const char* key);
std::optional<bool> optionalBool(const Json& object, const char* key);

} // namespace quillo::server
