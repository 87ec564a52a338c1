#include "Services/Auth/AuthTokens.h"

#include "Core/Json.h"

namespace quillo::authCoding {

namespace {

using json::Json;

constexpr int64_t longestLifetime = 10'000'000'000; // seconds

const Json& object(const Json& json, const char* key) {
    const auto* const found = json::find(json, key);
    if (!found || !found->is_object())
        json::reject(key, "an object");
    return *found;
}

QString text(const Json& json, const char* key) {
    QString text;
    json::readRequired(json, key, text);
    if (text.isEmpty())
        json::reject(key, "a text that is not empty");
    return text;
}

AuthUser user(const Json& json) {
    return {.id = text(json, "id"),
            .email = json::value<QString>(json, "email"),
            .fullName = json::value<QString>(json, "full_name"),
            .isAnonymous = json::value<bool>(json, "is_anonymous").value_or(false)};
}

AuthTokens tokens(const Json& json) {
    AuthTokens tokens{.accessToken = text(json, "access_token"), .refreshToken = text(json, "refresh_token")};
    json::readRequired(json, "expires_in", tokens.expiresIn);
    if (tokens.expiresIn < 0 || tokens.expiresIn > longestLifetime)
        json::reject("expires_in", "a number of seconds");
    return tokens;
}

} // namespace

QByteArray encode(const AuthUser& user) {
    Json json;
    json["id"] = json::of(user.id);
    if (user.email)
        json["email"] = json::of(*user.email);
    if (user.fullName)
        json["full_name"] = json::of(*user.fullName);
    json["is_anonymous"] = user.isAnonymous;
    return json::encode(json);
}

AuthUser decodeUser(const QByteArray& json) { return user(json::parseObject(json, "the answer")); }

AuthResponse decodeResponse(const QByteArray& json) {
    const auto answer = json::parseObject(json, "the answer");
    return {.user = user(object(answer, "user")),
            .tokens = tokens(object(answer, "tokens")),
            .isNewUser = json::value<bool>(answer, "is_new_user").value_or(false)};
}

AuthTokens decodeTokens(const QByteArray& json) {
    const auto answer = json::parseObject(json, "the answer");
    return tokens(answer.contains("tokens") ? object(answer, "tokens") : answer);
}

} // namespace quillo::authCoding
