#include "Core/Json.h"
#include "Services/Auth/AuthFailure.h"
#include "Services/Auth/AuthSession.h"

#include <QStringBuilder>

namespace quillo {

namespace {

constexpr int statusConflict = 409;

QByteArray exchangeBody(const QString& code, const QString& verifier) {
    json::Json json;
    json["grant_type"] = "authorization_code";
    json["code"] = json::of(code);
    json["code_verifier"] = json::of(verifier);
    json["redirect_uri"] = json::of(AuthConfig::redirectURI);
    json["client_id"] = json::of(AuthConfig::clientId);
    return json::encode(json);
}

/// A conflict status means that anonymous session and account cannot be merged.
AuthError conflict(const AuthHTTPAnswer& answer) {
    const auto json = json::parse(answer.body);
    const auto error = json ? json::value<QString>(*json, "error") : std::nullopt;
    return error == QStringLiteral("already_linked") ? authFailure::alreadyLinked()
                                                     : authFailure::linkFailed(answer.description());
}

AuthError missingVerifier() {
    authLog(QStringLiteral("Missing PKCE data during token exchange"), LogLevel::error);
    return authFailure::missingVerifier();
}

} // namespace

Task<> AuthSession::exchange(Self session, QString code) {
    const auto answered = session->flow;
    if (!answered || answered->hasCallback)
        throw missingVerifier();
    answered->hasCallback = true;
    if (const auto failure = co_await redeem(session, answered, std::move(code)))
        throw AuthError(*failure);
}

Task<> AuthSession::finish(Self session, std::shared_ptr<Flow> answered, QString code) {
    co_await redeem(session, answered, std::move(code));
}

Task<std::optional<AuthError>> AuthSession::redeem(Self session, std::shared_ptr<Flow> answered, QString code) {
    std::optional<AuthError> failure;
    try {
        co_await requestTokens(session, answered, std::move(code));
    } catch (const AuthError& error) {
        failure = error;
    }
    if (session->flow == answered)
        session->endFlow(failure);
    co_return failure;
}

Task<QString> AuthSession::mergeToken(Self session, std::shared_ptr<Flow> answered) {
    const auto isOurs = [&] {
        return !answered->anonymousUserId.isEmpty() && session->user && session->user->isAnonymous &&
               session->user->id == answered->anonymousUserId;
    };
    if (!isOurs())
        co_return QString();
    if (session->isTokenExpired()) {
        bool isFresh = true;
        try {
            co_await refresh(session);
        } catch (const AuthError&) {
            isFresh = false; // already logged; the sign-in continues without the merge
        }
        if (!isFresh || !isOurs())
            co_return QString();
    }
    co_return session->config.tokenStorage->accessToken().value_or(QString());
}

Task<> AuthSession::requestTokens(Self session, std::shared_ptr<Flow> answered, QString code) {
    authLog(QStringLiteral("Exchanging authorization code for tokens..."));
    const auto verifier = std::exchange(answered->pkce.codeVerifier, {});
    if (verifier.isEmpty())
        throw missingVerifier();
    const auto accessToken = co_await mergeToken(session, answered);
    if (session->flow != answered)
        throw authFailure::cancelled();
    const auto answer = co_await session->http.send({.method = "POST",
                                                     .url = session->authURL(QStringLiteral("/oauth/token")),
                                                     .json = exchangeBody(code, verifier),
                                                     .accessToken = accessToken},
                                                    session->config.requestTimeout);
    // The sign-in was cancelled or replaced in the meantime: discard the tokens.
    if (session->flow != answered)
        throw authFailure::cancelled();
    if (answer.status != 200) {
        authLog(QStringLiteral("Token exchange failed with status: ") % answer.statusText(), LogLevel::error);
        if (answer.status == statusConflict)
            throw conflict(answer);
        throw authFailure::exchangeFailed(answer.statusText());
    }
    AuthResponse response;
    try {
        response = authCoding::decodeResponse(answer.body);
    } catch (const std::runtime_error& error) {
        const auto reason = QString::fromUtf8(error.what());
        authLog(QStringLiteral("Failed to decode auth response: ") % reason, LogLevel::error);
        throw authFailure::decoding(reason);
    }
    session->adopt(response);
}

} // namespace quillo
