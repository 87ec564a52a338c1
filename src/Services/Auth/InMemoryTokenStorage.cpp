#include "Services/Auth/InMemoryTokenStorage.h"

namespace quillo {

namespace {

std::optional<QString> text(const std::optional<QByteArray>& bytes) {
    return bytes ? std::optional(QString::fromUtf8(*bytes)) : std::nullopt;
}

std::optional<QByteArray> bytes(const std::optional<QString>& text) {
    return text ? std::optional(text->toUtf8()) : std::nullopt;
}

} // namespace

std::optional<QByteArray> InMemoryTokenStorage::value(const QString& key) const {
    const std::lock_guard lock(m_mutex);
    return m_values.value(key);
}

void InMemoryTokenStorage::setValue(const QString& key, const std::optional<QByteArray>& value) {
    {
        const std::lock_guard lock(m_mutex);
        m_values.insert(key, value);
    }
    changed(key, value);
}

InMemoryTokenStorage::Values InMemoryTokenStorage::values() const {
    const std::lock_guard lock(m_mutex);
    return m_values;
}

void InMemoryTokenStorage::replaceAll(const Values& values) {
    const std::lock_guard lock(m_mutex);
    m_values = values;
}

std::optional<QString> InMemoryTokenStorage::accessToken() const { return text(value(tokenKey::accessToken)); }

void InMemoryTokenStorage::setAccessToken(const std::optional<QString>& token) {
    setValue(tokenKey::accessToken, bytes(token));
}

std::optional<QString> InMemoryTokenStorage::refreshToken() const { return text(value(tokenKey::refreshToken)); }

void InMemoryTokenStorage::setRefreshToken(const std::optional<QString>& token) {
    setValue(tokenKey::refreshToken, bytes(token));
}

std::optional<QDateTime> InMemoryTokenStorage::accessTokenExpiresAt() const {
    const auto stored = text(value(tokenKey::accessTokenExpiresAt));
    const auto time = stored ? QDateTime::fromString(*stored, Qt::ISODateWithMs) : QDateTime();
    return time.isValid() ? std::optional(time) : std::nullopt;
}

void InMemoryTokenStorage::setAccessTokenExpiresAt(const std::optional<QDateTime>& time) {
    setValue(tokenKey::accessTokenExpiresAt,
             time ? std::optional(time->toUTC().toString(Qt::ISODateWithMs).toUtf8()) : std::nullopt);
}

std::optional<QByteArray> InMemoryTokenStorage::userData() const { return value(tokenKey::userData); }

void InMemoryTokenStorage::setUserData(const std::optional<QByteArray>& data) { setValue(tokenKey::userData, data); }

std::optional<QString> InMemoryTokenStorage::deviceId() const { return text(value(tokenKey::deviceId)); }

void InMemoryTokenStorage::setDeviceId(const QString& id) { setValue(tokenKey::deviceId, id.toUtf8()); }

void InMemoryTokenStorage::clear() {
    for (const auto& key :
         {tokenKey::accessToken, tokenKey::refreshToken, tokenKey::accessTokenExpiresAt, tokenKey::userData})
        setValue(key, std::nullopt);
}

} // namespace quillo
