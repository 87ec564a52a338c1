#include "Services/Auth/AuthSession.h"

#include "Core/Log.h"
#include "Core/NotificationCenter.h"

#include <QStringBuilder>

namespace quillo {

QUrl AuthService::Session::authURL(const QString& path) const {
    auto url = config.authBaseURL;
    url.setPath(url.path() + path);
    return url;
}

QUrl AuthService::Session::apiURL(const QString& path) const {
    auto url = config.apiBaseURL;
    url.setPath(url.path() + path);
    return url;
}

void AuthService::Session::setUser(const std::optional<AuthUser>& changed) {
    isAuthenticated = changed.has_value();
    if (user == changed)
        return;
    user = changed;
    NotificationCenter::shared().post(notification::authUserDidChange);
}

void AuthService::Session::storeTokens(const AuthTokens& tokens) const {
    config.tokenStorage->setAccessToken(tokens.accessToken);
    config.tokenStorage->setRefreshToken(tokens.refreshToken);
    config.tokenStorage->setAccessTokenExpiresAt(clock.wallTime().addSecs(tokens.expiresIn));
}

void AuthService::Session::end() {
    ++generation;
    config.tokenStorage->clear();
    isNewUser = false;
    setUser(std::nullopt);
}

QString AuthService::Session::deviceId() const {
    // The id is what an anonymous session is made from, so a line shows its beginning alone.
    const auto shown = [](const QString& id) -> QString { return id.left(8) % QStringLiteral("…"); };
    const auto log = [](const QString& message) { appLog(message, LogLevel::info, QStringLiteral("Auth")); };
    if (const auto stored = config.tokenStorage->deviceId(); stored && !stored->isEmpty()) {
        log(QStringLiteral("Using existing device_id: ") % shown(*stored));
        return *stored;
    }
    QString made;
    if (const auto hardware = config.device.hardwareUUID()) {
        made = *hardware;
        log(QStringLiteral("Generated device_id from hardware UUID: ") % shown(made));
    } else {
        made = makeUUIDVersion7(clock.wallTime());
        log(QStringLiteral("Hardware UUID unavailable — generated random UUID v7: ") % shown(made));
    }
    config.tokenStorage->setDeviceId(made);
    return made;
}

} // namespace quillo
