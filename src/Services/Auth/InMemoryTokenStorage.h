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
/// Which server issued what is stored under the others.
inline const QString issuer = QStringLiteral("com.quillospeech.issuer");
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
    using Values = QHash<QString, std::optional<QByteArray>>; ///< a removed key holds nothing
    [[nodiscard]] Values values() const;
    /// Puts these in the place of all others at once, without telling `changed`.
    void replaceAll(const Values& values);

private:
    mutable std::mutex m_mutex;
    Values m_values;
};

} // namespace quillo
