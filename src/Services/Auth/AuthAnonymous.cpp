#include "Services/Auth/AuthSession.h"

#include <QStringBuilder>

namespace quillo {

namespace {

AuthError anonymousFailed(AuthError::Kind kind, const QString& reason) {
    authLog(QStringLiteral("Anonymous authentication failed: ") % reason, LogLevel::error);
    return {kind, AuthError::Code::anonymousFailed, QStringLiteral("Anonymous authentication failed: ") % reason};
}

} // namespace

Task<> AuthSession::requestAnonymous(Self session) {
    authLog(QStringLiteral("Creating anonymous session"));
    const Loading loading(session);
    const auto generation = session->generation;
    const auto answer = co_await session->http.send(
        {.method = "POST", .url = session->apiURL(QStringLiteral("/auth/anonymous")), .json = session->deviceRecord()},
        session->config.requestTimeout);
    if (session->generation != generation) {
        // The user has signed in in the meantime and needs no anonymous session.
        if (session->isAuthenticated)
            co_return;
        throw anonymousFailed(AuthError::Kind::authentication, QStringLiteral("signed out meanwhile"));
    }
    if (answer.status == 403 && answer.hasCode(QStringLiteral("ANONYMOUS_REFUSED")))
        throw AuthError(AuthError::Kind::authentication, AuthError::Code::accountRequired,
                        QStringLiteral("Anonymous authentication failed: the server serves accounts only"));
    if (answer.status != 200 && answer.status != 201)
        throw anonymousFailed(answer.isRejection() ? AuthError::Kind::authentication : AuthError::Kind::transport,
                              answer.description());
    AuthResponse response;
    try {
        response = authCoding::decodeResponse(answer.body);
    } catch (const std::runtime_error& error) {
        authLog(QStringLiteral("Failed to decode auth response: ") % QString::fromUtf8(error.what()), LogLevel::error);
        throw anonymousFailed(AuthError::Kind::transport, QString::fromUtf8(error.what()));
    }
    session->storeTokens(response.tokens);
    session->config.tokenStorage->setUserData(authCoding::encode(response.user));
    session->isNewUser = response.isNewUser;
    authLog(QStringLiteral("Tokens stored in keychain"));
    authLog(QStringLiteral("Anonymous session created, user_id: ") % response.user.id);
    session->setUser(response.user);
}

} // namespace quillo
