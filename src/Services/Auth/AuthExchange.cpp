#include "Services/Auth/AuthFailure.h"
#include "Services/Auth/AuthSession.h"

#include <QStringBuilder>

#include <nlohmann/json.hpp>

namespace quillo {

namespace {

constexpr int statusConflict = 409;

QByteArray exchangeBody(const QString& code, const QString& verifier) {
    nlohmann::ordered_json json;
    json["grant_type"] = "authorization_code";
    json["code"] = code.toStdString();
    json["code_verifier"] = verifier.toStdString();
    json["redirect_uri"] = AuthConfig::redirectURI.toStdString();
    json["client_id"] = AuthConfig::clientId.toStdString();
    return QByteArray::fromStdString(json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

/// A conflict status means that anonymous session and account cannot be merged.
AuthError conflict(const AuthHTTPAnswer& answer) {
    const auto json = nlohmann::json::parse(answer.body.begin(), answer.body.end(), nullptr, false);
    const auto error = json.is_object() && json.contains("error") && json["error"].is_string()
                           ? json["error"].get<std::string>()
                           : std::string();
    return error == "already_linked" ? authFailure::alreadyLinked() : authFailure::linkFailed(answer.description());
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
    std::optional<AuthError> failure;
    try {
        co_await requestTokens(session, answered, std::move(code));
    } catch (const AuthError& error) {
        failure = error;
    }
    if (session->flow == answered)
        session->endFlow(failure);
    if (failure)
        throw AuthError(*failure);
}

Task<> AuthSession::finish(Self session, std::shared_ptr<Flow> answered, QString code) {
    std::optional<AuthError> failure;
    try {
        co_await requestTokens(session, answered, std::move(code));
    } catch (const AuthError& error) {
        failure = error;
    }
    if (session->flow == answered)
        session->endFlow(failure);
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
