#include "Data/Models/JsonCoding.h"

namespace quillo::jsonCoding {

namespace {

// Our own data nests at most three levels deep; a hostile file must not exhaust the stack.
constexpr int deepest = 32;

QString toString(const Json& json) { return QString::fromStdString(json.get_ref<const std::string&>()); }

} // namespace

std::optional<Json> parse(const QByteArray& bytes) {
    bool tooDeep = false;
    const auto guard = [&tooDeep](int depth, nlohmann::detail::parse_event_t, Json&) {
        tooDeep = tooDeep || depth > deepest;
        return !tooDeep;
    };
    auto json = Json::parse(bytes.begin(), bytes.end(), guard, false);
    if (json.is_discarded() || tooDeep)
        return std::nullopt;
    return json;
}

std::optional<QString> string(const Json& object, const char* key) {
    if (!object.is_object())
        return std::nullopt;
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string())
        return std::nullopt;
    return toString(*found);
}

std::optional<double> number(const Json& object, const char* key) {
    if (!object.is_object())
        return std::nullopt;
    const auto found = object.find(key);
    if (found == object.end() || !found->is_number())
        return std::nullopt;
    return found->get<double>();
}

Json value(const QString& text) { return text.toStdString(); }

QByteArray encode(const Json& json) { return QByteArray::fromStdString(json.dump()); }

} // namespace quillo::jsonCoding
