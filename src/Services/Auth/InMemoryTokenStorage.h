#pragma once

#include "Services/Auth/TokenStorageProtocol.h"

#include <QHash>

#include <mutex>

namespace quillo {

/// The keys of a session's stored secrets.
namespace tokenKey {
inline const QString accessToken = QStringLiteral("com.quillospeech.accessToken");
inline const QString refreshToken = QStringLiteral("com.quillospeech.refreshToken");
inline const QString accessTokenExpiresAt = QStringLiteral("com.quillospeech.accessTokenExpiresAt");
inline const QString userData = QStringLiteral("com.quillospeech.userData");
inline const QString deviceId = QStringLiteral("com.quillospeech.deviceId");
/// The server that issued the values of the other keys.
inline const QString issuer = QStringLiteral("com.quillospeech.issuer");
} // namespace tokenKey

/// Secrets in memory only, for tests and previews, and as the cache of the keychain's storage.
class InMemoryTokenStorage : public TokenStorageProtocol {
public:
    [[nodiscard]] std::optional<QString> accessToken() const override;
    void setAccessToken(const std::optional<QString>& token) override;
    [[nodiscard]] std::optional<QString> refreshToken() const override;
    void setRefreshToken(const std::optional<QString>& token) override;
    [[nodiscard]] std::optional<QDateTime> accessTokenExpiresAt() const override;
    void setAccessTokenExpiresAt(const std::optional<QDateTime>& time) override;
    [[nodiscard]] std::optional<QByteArray> userData() const override;
    void setUserData(const std::optional<QByteArray>& data) override;
    [[nodiscard]] std::optional<QString> deviceId() const override;
    void setDeviceId(const QString& id) override;
    void clear() override;

protected:
    /// Called after a value changed in memory, on the thread that changed it; without a value it was removed.
    virtual void changed(const QString& /*key*/, const std::optional<QByteArray>& /*value*/) {}
    [[nodiscard]] std::optional<QByteArray> value(const QString& key) const;
    void setValue(const QString& key, const std::optional<QByteArray>& value);
    using Values = QHash<QString, std::optional<QByteArray>>; ///< a removed key has no value
    [[nodiscard]] Values values() const;
    /// Replaces all values at once, without calling `changed`.
    void replaceAll(const Values& values);

private:
    mutable std::mutex m_mutex;
    Values m_values;
};

} // namespace quillo
