#include "Services/Auth/AuthTokens.h"

#include <nlohmann/json.hpp>

namespace quillo::authCoding {

namespace {

using Json = nlohmann::ordered_json;

Json parse(const QByteArray& bytes) {
    auto json = Json::parse(bytes.begin(), bytes.end(), nullptr, false);
    if (!json.is_object())
        throw std::runtime_error("the answer is not a JSON object");
    return json;
}

const Json& object(const Json& json, const char* key) {
    const auto found = json.find(key);
    if (found == json.end() || !found->is_object())
        throw std::runtime_error(std::string("\"") + key + "\" is not an object");
    return *found;
}

QString text(const Json& json, const char* key) {
    const auto found = json.find(key);
    if (found == json.end() || !found->is_string() || found->get_ref<const std::string&>().empty())
        throw std::runtime_error(std::string("\"") + key + "\" is not a text");
    return QString::fromStdString(found->get_ref<const std::string&>());
}

std::optional<QString> optionalText(const Json& json, const char* key) {
    const auto found = json.find(key);
    if (found == json.end() || !found->is_string())
        return std::nullopt;
    return QString::fromStdString(found->get_ref<const std::string&>());
}

bool flag(const Json& json, const char* key) {
    const auto found = json.find(key);
    return found != json.end() && found->is_boolean() && found->get<bool>();
}

AuthUser user(const Json& json) {
    return {.id = text(json, "id"),
            .email = optionalText(json, "email"),
            .fullName = optionalText(json, "full_name"),
            .isAnonymous = flag(json, "is_anonymous")};
}

AuthTokens tokens(const Json& json) {
    AuthTokens tokens{.accessToken = text(json, "access_token"), .refreshToken = text(json, "refresh_token")};
    const auto expiry = json.find("expires_in");
    if (expiry == json.end() || !expiry->is_number_integer() || expiry->get<double>() < 0 ||
        expiry->get<double>() > 1e10)
        throw std::runtime_error("\"expires_in\" is not a number of seconds");
    tokens.expiresIn = expiry->get<int64_t>();
    return tokens;
}

} // namespace

QByteArray encode(const AuthUser& user) {
    Json json;
    json["id"] = user.id.toStdString();
    if (user.email)
        json["email"] = user.email->toStdString();
    if (user.fullName)
        json["full_name"] = user.fullName->toStdString();
    json["is_anonymous"] = user.isAnonymous;
    return QByteArray::fromStdString(json.dump(-1, ' ', false, Json::error_handler_t::replace));
}

AuthUser decodeUser(const QByteArray& json) { return user(parse(json)); }

AuthResponse decodeResponse(const QByteArray& json) {
    const auto answer = parse(json);
    return {.user = user(object(answer, "user")),
            .tokens = tokens(object(answer, "tokens")),
            .isNewUser = flag(answer, "is_new_user")};
}

AuthTokens decodeTokens(const QByteArray& json) {
    const auto answer = parse(json);
    return tokens(answer.contains("tokens") ? object(answer, "tokens") : answer);
}

} // namespace quillo::authCoding
