#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>

namespace quillo {

/// The secrets of the session. Thread-safe. Failures are logged and swallowed: a failed read reads as absent.
class TokenStorageProtocol {
public:
    virtual ~TokenStorageProtocol() = default;

    [[nodiscard]] virtual std::optional<QString> accessToken() const = 0;
    virtual void setAccessToken(const std::optional<QString>& token) = 0;
    [[nodiscard]] virtual std::optional<QString> refreshToken() const = 0;
    virtual void setRefreshToken(const std::optional<QString>& token) = 0;
    [[nodiscard]] virtual std::optional<QDateTime> accessTokenExpiresAt() const = 0;
    virtual void setAccessTokenExpiresAt(const std::optional<QDateTime>& time) = 0;
    /// The encoded user.
    [[nodiscard]] virtual std::optional<QByteArray> userData() const = 0;
    virtual void setUserData(const std::optional<QByteArray>& data) = 0;
    [[nodiscard]] virtual std::optional<QString> deviceId() const = 0;
    virtual void setDeviceId(const QString& id) = 0;

    /// Removes everything but the device id.
    virtual void clear() = 0;
};

} // namespace quillo
