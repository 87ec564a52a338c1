#include "Core/Json.h"
#include "Services/Auth/AuthFailure.h"
#include "Services/Auth/AuthSession.h"

#include <QStringBuilder>

namespace quillo {

namespace {

QByteArray refreshBody(const QString& refreshToken) {
    json::Json json;
    json["grant_type"] = "refresh_token";
    json["refresh_token"] = json::of(refreshToken);
    json["client_id"] = json::of(AuthConfig::clientId);
    return json::encode(json);
}

} // namespace

Task<> AuthSession::requestRefresh(Self session) {
    // A refresh token works only once, so concurrent callers must share this request.
    authLog(QStringLiteral("Attempting to refresh access token"));
    const auto refreshToken = session->config.tokenStorage->refreshToken();
    if (!refreshToken || refreshToken->isEmpty()) {
        authLog(QStringLiteral("No refresh token available"), LogLevel::warn);
        session->expire();
        throw authFailure::notAuthenticated();
    }
    const auto generation = session->generation;
    const auto answer = co_await session->http.send(
        {.method = "POST", .url = session->authURL(QStringLiteral("/oauth/token")), .json = refreshBody(*refreshToken)},
        session->config.requestTimeout);
    if (session->generation != generation) {
        // A sign-in in the meantime has brought newer tokens.
        if (session->isAuthenticated)
            co_return;
        throw authFailure::notAuthenticated();
    }
    if (answer.status != 200) {
        authLog(QStringLiteral("Token refresh failed with status: ") % answer.statusText(), LogLevel::error);
        if (answer.isTokenRejection()) {
            session->expire();
            throw authFailure::notAuthenticated();
        }
        throw AuthError(AuthError::Kind::transport, AuthError::Code::refreshFailed,
                        QStringLiteral("Token refresh failed with status: ") % answer.statusText());
    }
    try {
        session->storeTokens(authCoding::decodeTokens(answer.body));
        session->isExpired = false;
    } catch (const std::runtime_error& error) {
        // A 200 with other content does not come from an account server, but from a captive portal or a proxy.
        const auto reason = QString::fromUtf8(error.what());
        authLog(QStringLiteral("Failed to decode auth response: ") % reason, LogLevel::error);
        throw authFailure::decoding(reason);
    }
    authLog(QStringLiteral("Token refreshed successfully"));
}

} // namespace quillo
