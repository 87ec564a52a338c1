#include "Core/Log.h"
#include "Services/Auth/AuthSession.h"

#include <QStringBuilder>
#include <QSysInfo>

#include <nlohmann/json.hpp>

namespace quillo {

namespace {

void log(const QString& message, LogLevel level = LogLevel::info) { appLog(message, level, QStringLiteral("Auth")); }

AuthError anonymousFailed(AuthError::Kind kind, const QString& reason) {
    log(QStringLiteral("Anonymous authentication failed: ") % reason, LogLevel::error);
    return {kind, QStringLiteral("Anonymous authentication failed: ") % reason};
}

} // namespace

Task<> AuthService::Session::createAnonymous(std::shared_ptr<Session> session) {
    log(QStringLiteral("Creating anonymous session"));
    const auto generation = session->generation;
    const auto deviceId = session->deviceId();
    nlohmann::ordered_json json;
    json["device_id"] = deviceId.toStdString();
    json["platform"] = "macos";
    json["app_version"] = session->config.clientVersion.toStdString();
    json["os_version"] = QSysInfo::prettyProductName().toStdString();
    json["device_fingerprint"] = session->config.device.fingerprint(deviceId).toStdString();
    const auto body = json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);

    ++session->loading;
    const auto answer = co_await session->http.post(session->apiURL(QStringLiteral("/auth/anonymous")),
                                                    QByteArray::fromStdString(body), session->config.requestTimeout);
    --session->loading;
    if (session->generation != generation)
        throw anonymousFailed(AuthError::Kind::authentication, QStringLiteral("signed out meanwhile"));
    if (answer.status != 200 && answer.status != 201)
        throw anonymousFailed(answer.isRejection() ? AuthError::Kind::authentication : AuthError::Kind::transport,
                              answer.description());
    AuthResponse response;
    try {
        response = authCoding::decodeResponse(answer.body);
    } catch (const std::runtime_error& error) {
        log(QStringLiteral("Failed to decode auth response: ") % QString::fromUtf8(error.what()), LogLevel::error);
        throw anonymousFailed(AuthError::Kind::transport, QString::fromUtf8(error.what()));
    }
    session->storeTokens(response.tokens);
    session->config.tokenStorage->setUserData(authCoding::encode(response.user));
    session->isNewUser = response.isNewUser;
    log(QStringLiteral("Tokens stored in keychain"));
    log(QStringLiteral("Anonymous session created, user_id: ") % response.user.id);
    session->setUser(response.user);
}

} // namespace quillo
