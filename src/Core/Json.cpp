#include "Core/Json.h"

#include <QStringList>

#include <algorithm>
#include <cmath>

namespace quillo::json {

namespace {

constexpr double largestExact = 1LL << 53; // a double holds every whole number up to here

bool isNestedTooDeep(const QByteArray& text) {
    int depth = 0;
    bool inText = false;
    bool escaped = false;
    for (const char character : text) {
        if (inText) {
            if (escaped)
                escaped = false;
            else if (character == '\\')
                escaped = true;
            else if (character == '"')
                inText = false;
        } else if (character == '"') {
            inText = true;
        } else if (character == '{' || character == '[') {
            if (++depth > deepestNesting)
                return true;
        } else if (character == '}' || character == ']') {
            --depth;
        }
    }
    return false;
}

} // namespace

std::optional<Json> parse(const QByteArray& text) {
    if (isNestedTooDeep(text))
        return std::nullopt;
    auto json = Json::parse(text.begin(), text.end(), nullptr, false);
    return json.is_discarded() ? std::nullopt : std::optional(std::move(json));
}

Json parseObject(const QByteArray& text, const std::string& name) {
    if (isNestedTooDeep(text))
        throw std::runtime_error(name + " nests too deep");
    auto object = Json::parse(text.begin(), text.end(), nullptr, false);
    if (!object.is_object())
        throw std::runtime_error(name + " is not a JSON object");
    return object;
}

QByteArray encode(const Json& json, int indent) {
    return QByteArray::fromStdString(json.dump(indent, ' ', false, Json::error_handler_t::replace));
}

Json of(const QString& text) { return text.toStdString(); }

Json of(const QStringList& texts) {
    auto array = Json::array();
    for (const auto& text : texts)
        array.push_back(of(text));
    return array;
}

QString textOf(const Json& value) { return QString::fromStdString(value.get_ref<const std::string&>()); }

bool convert(const Json& value, QString& field) {
    if (!value.is_string())
        return false;
    field = textOf(value);
    return true;
}

bool convert(const Json& value, double& field) {
    if (!value.is_number())
        return false;
    field = value.get<double>();
    return true;
}

bool convert(const Json& value, bool& field) {
    if (!value.is_boolean())
        return false;
    field = value.get<bool>();
    return true;
}

const Json* find(const Json& object, const char* key) {
    const auto found = object.find(key); // the end for what is no object
    return found == object.end() || found->is_null() ? nullptr : &*found;
}

std::optional<double> detail::wholeNumber(const Json& value, double largest) {
    double number = 0;
    if (!convert(value, number) || std::trunc(number) != number || std::abs(number) > std::min(largest, largestExact))
        return std::nullopt;
    return number;
}

void reject(const char* key, const char* expected) {
    throw std::runtime_error(std::string("\"") + key + "\" must be " + expected);
}

} // namespace quillo::json
