#pragma once

#include <QByteArray>
#include <QString>

#include <nlohmann/json.hpp>

#include <optional>

namespace quillo::jsonCoding {

using Json = nlohmann::ordered_json;

/// The content of data fields is not trusted: each function returns nothing when the value is missing or of another
/// type.
std::optional<Json> parse(const QByteArray& bytes);
std::optional<QString> string(const Json& object, const char* key);
std::optional<double> number(const Json& object, const char* key);

Json value(const QString& text);
QByteArray encode(const Json& json);

/// Decodes an array whose elements all decode; nothing otherwise.
template <typename Element, typename Decode>
std::optional<QList<Element>> decodeArray(const QByteArray& bytes, Decode decode) {
    const auto json = parse(bytes);
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

} // namespace quillo::jsonCoding
