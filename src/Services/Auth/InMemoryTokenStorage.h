#pragma once

#include "Services/Auth/TokenStorageProtocol.h"

#include <QHash>

#include <mutex>

namespace quillo {

/// The keys that the secrets of a session are stored under.
namespace tokenKey {
inline const QString accessToken = QStringLiteral("com.quillospeech.accessToken");
inline const QString refreshToken = QStringLiteral("com.quillospeech.refreshToken");
inline const QString accessTokenExpiresAt = QStringLiteral("com.quillospeech.accessTokenExpiresAt");
inline const QString userData = QStringLiteral("com.quillospeech.userData");
inline const QString deviceId = QStringLiteral("com.quillospeech.deviceId");
} // namespace tokenKey

/// Secrets in memory alone: for tests and previews, and what the keychain's storage reads from.
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
    /// Takes `value` over from a slower store, unless the key was set or removed in the meantime.
    void adopt(const QString& key, const QByteArray& value);
    /// Takes `value` over whatever was there, without telling `changed`.
    void replace(const QString& key, const QByteArray& value);

private:
    mutable std::mutex m_mutex;
    QHash<QString, std::optional<QByteArray>> m_values; ///< a removed key holds nothing
};

} // namespace quillo
