#include "Core/Log.h"
#include "Services/Auth/AuthSession.h"

#include <QStringBuilder>

#include <nlohmann/json.hpp>

namespace quillo {

namespace {

void log(const QString& message, LogLevel level = LogLevel::info) { appLog(message, level, QStringLiteral("Auth")); }

QByteArray refreshBody(const QString& refreshToken) {
    nlohmann::ordered_json json;
    json["grant_type"] = "refresh_token";
    json["refresh_token"] = refreshToken.toStdString();
    json["client_id"] = AuthService::clientId.toStdString();
    return QByteArray::fromStdString(json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

AuthError notAuthenticated() { return {AuthError::Kind::authentication, QStringLiteral("Not authenticated")}; }

} // namespace

Task<> AuthService::Session::refresh(std::shared_ptr<Session> session) {
    if (session->isRefreshing) {
        // A refresh token is good for one use: a second request with it would end the session.
        auto [outcomes, sink] = AsyncStream<RefreshOutcome>::make(EventExecutor::main());
        session->waiting.push_back(sink);
        const auto outcome = co_await outcomes.next();
        if (outcome && outcome->error)
            throw AuthError(*outcome->error);
        co_return;
    }
    session->isRefreshing = true;
    RefreshOutcome outcome;
    try {
        co_await requestRefresh(session);
    } catch (const AuthError& error) {
        outcome.error = error;
    }
    session->isRefreshing = false;
    for (const auto& sink : std::exchange(session->waiting, {})) {
        sink.yield(outcome);
        sink.finish();
    }
    if (outcome.error)
        throw AuthError(*outcome.error);
}

Task<> AuthService::Session::requestRefresh(std::shared_ptr<Session> session) {
    log(QStringLiteral("Attempting to refresh access token"));
    const auto refreshToken = session->config.tokenStorage->refreshToken();
    if (!refreshToken || refreshToken->isEmpty()) {
        log(QStringLiteral("No refresh token available"), LogLevel::warn);
        throw notAuthenticated();
    }
    const auto generation = session->generation;
    const auto answer = co_await session->http.post(session->authURL(QStringLiteral("/oauth/token")),
                                                    refreshBody(*refreshToken), session->config.requestTimeout);
    if (session->generation != generation)
        throw notAuthenticated();
    if (answer.status != 200) {
        log(QStringLiteral("Token refresh failed with status: ") % answer.description(), LogLevel::error);
        const auto kind = answer.isRejection() ? AuthError::Kind::authentication : AuthError::Kind::transport;
        throw AuthError(kind, answer.isRejection()
                                  ? QStringLiteral("Not authenticated")
                                  : QStringLiteral("Token refresh failed with status: ") % answer.description());
    }
    try {
        session->storeTokens(authCoding::decodeTokens(answer.body));
    } catch (const std::runtime_error& error) {
        // Whoever answered 200 with something else is no account server: a captive portal, a proxy.
        const auto reason = QString::fromUtf8(error.what());
        log(QStringLiteral("Failed to decode auth response: ") % reason, LogLevel::error);
        throw AuthError(AuthError::Kind::transport, QStringLiteral("Failed to decode response: ") % reason);
    }
    log(QStringLiteral("Token refreshed successfully"));
}

} // namespace quillo
