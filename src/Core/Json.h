#pragma once

#include <QByteArray>
#include <QString>

#include <nlohmann/json.hpp>

#include <concepts>
#include <limits>
#include <optional>
#include <stdexcept>

namespace quillo::json {

/// Keeps the keys in the order in which they were written.
using Json = nlohmann::ordered_json;

/// Our messages and files nest at most five levels deep; a hostile text must not exhaust the stack.
inline constexpr int deepestNesting = 32;

/// Text that is not trusted: nothing when it is not JSON or nests deeper than `deepestNesting`, which is counted in the
/// bytes before memory is allocated. Any thread, as everything here.
std::optional<Json> parse(const QByteArray& text);
/// The same for an object. Throws runtime_error: `<name> is not a JSON object`.
Json parseObject(const QByteArray& text, const std::string& name = "it");

/// Compact, or indented by `indent` blanks. Half a surrogate pair, as a window title may contain it, is replaced.
QByteArray encode(const Json& json, int indent = -1);
Json of(const QString& text);
Json of(const QStringList& texts);

/// The text of a value that is known to be one.
QString textOf(const Json& value);

/// Converts `value`; false, with `field` unchanged, when it has another type or is out of range. A whole number may be
/// written as 12.0, as some writers do.
bool convert(const Json& value, QString& field);
bool convert(const Json& value, double& field);
bool convert(const Json& value, bool& field);
template <std::signed_integral Integer>
bool convert(const Json& value, Integer& field);

/// The value of `key`; null when it is absent or null, or `object` is no object.
const Json* find(const Json& object, const char* key);

/// Lenient: a value that is absent or of another type is nothing.
template <class T>
std::optional<T> value(const Json& object, const char* key) {
    const auto* const found = find(object, key);
    T result{};
    return found && convert(*found, result) ? std::optional(std::move(result)) : std::nullopt;
}

/// Throws runtime_error: `"key" must be <expected>`.
[[noreturn]] void reject(const char* key, const char* expected);

namespace detail {
inline const char* nameOf(const QString&) { return "a text"; }
inline const char* nameOf(double) { return "a number"; }
inline const char* nameOf(bool) { return "true or false"; }
template <std::signed_integral Integer>
const char* nameOf(Integer) {
    return "a whole number";
}
/// The whole number in `value` if it lies within plus and minus `largest`.
std::optional<double> wholeNumber(const Json& value, double largest);
} // namespace detail

template <std::signed_integral Integer>
bool convert(const Json& value, Integer& field) {
    const auto number = detail::wholeNumber(value, static_cast<double>(std::numeric_limits<Integer>::max()));
    if (number)
        field = static_cast<Integer>(*number);
    return number.has_value();
}

/// Strict: leaves `field` unchanged when the key is absent or null, and rejects a value of another type.
template <class T>
void readOptional(const Json& object, const char* key, T& field) {
    if (const auto* const found = find(object, key); found && !convert(*found, field))
        reject(key, detail::nameOf(field));
}

template <class T>
void readOptional(const Json& object, const char* key, std::optional<T>& field) {
    if (find(object, key))
        readOptional(object, key, field.emplace());
}

/// Strict: rejects a missing or null value too.
template <class T>
void readRequired(const Json& object, const char* key, T& field) {
    if (!find(object, key))
        throw std::runtime_error(std::string("\"") + key + "\" is missing");
    readOptional(object, key, field);
}

/// The elements of an array; nothing when one of them does not decode.
template <typename Element, typename Decode>
std::optional<QList<Element>> decodeArray(const QByteArray& text, Decode decode) {
    const auto json = parse(text);
    if (!json || !json->is_array())
        return std::nullopt;
    QList<Element> elements;
    for (const auto& item : *json) {
        std::optional<Element> element = decode(item);
        if (!element)
            return std::nullopt;
        elements.append(std::move(*element));
    }
    return elements;
}

} // namespace quillo::json
