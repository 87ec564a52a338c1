#include "Services/Auth/AuthFailure.h"
#include "Services/Auth/AuthSession.h"

#include <QStringBuilder>

namespace quillo {

namespace {

constexpr int statusUnauthorized = 401;

/// The characters of a bearer token by RFC 6750 section 2.1; others could add lines to a request.
bool isToken(const QString& text) {
    static const auto isAllowed = [](QChar character) {
        return character.unicode() > 0x20 && character.unicode() < 0x7f;
    };
    return !text.isEmpty() && std::all_of(text.begin(), text.end(), isAllowed);
}

bool isSuccess(const AuthHTTPAnswer& answer) { return answer.status >= 200 && answer.status < 300; }

} // namespace

Task<> AuthSession::applyWebTokens(Self session, QString accessToken, QString refreshToken) {
    const auto failed = [](const AuthError& error) {
        authLog(QStringLiteral("applyWebTokens: failed — ") % QString::fromUtf8(error.what()), LogLevel::error);
        return error;
    };
    if (!isToken(accessToken) || !isToken(refreshToken))
        throw failed(authFailure::notAuthenticated());
    const Loading loading(session);
    const auto generation = session->generation;
    const auto answer = co_await session->http.send(
        {.method = "GET", .url = session->apiURL(QStringLiteral("/auth/me")), .accessToken = accessToken},
        session->config.requestTimeout);
    if (session->generation != generation)
        throw failed(authFailure::cancelled());
    if (answer.status != 200) {
        authLog(QStringLiteral("applyWebTokens: /auth/me returned status ") % answer.statusText(), LogLevel::error);
        throw failed(answer.isRejection() ? authFailure::notAuthenticated()
                                          : AuthError(AuthError::Kind::transport, AuthError::Code::accountUnreadable,
                                                      answer.description()));
    }
    AuthResponse response{.tokens = {.accessToken = accessToken, .refreshToken = refreshToken, .expiresIn = -1}};
    try {
        response.user = authCoding::decodeUser(answer.body);
    } catch (const std::runtime_error& error) {
        throw failed(authFailure::decoding(QString::fromUtf8(error.what())));
    }
    session->endFlow(authFailure::cancelled());
    authLog(QStringLiteral("applyWebTokens: storing tokens"));
    session->adopt(response);
    authLog(QStringLiteral("applyWebTokens: success, user=") % response.user.id);
}

Task<> AuthSession::syncDevice(Self session) {
    const auto token = session->config.tokenStorage->accessToken();
    if (!token || token->isEmpty()) {
        authLog(QStringLiteral("Device info sync failed: Not authenticated"), LogLevel::warn);
        co_return;
    }
    const auto answer = co_await session->http.send({.method = "POST",
                                                     .url = session->apiURL(QStringLiteral("/users/me/device")),
                                                     .json = session->deviceRecord(),
                                                     .accessToken = *token},
                                                    session->config.requestTimeout);
    if (isSuccess(answer))
        authLog(QStringLiteral("Device info synced: ") % answer.description());
    else
        authLog(QStringLiteral("Device info sync failed: ") % answer.description(), LogLevel::warn);
}

Task<> AuthSession::deleteAccount(Self session) {
    const auto failed = [](AuthError::Kind kind, const QString& reason) {
        authLog(QStringLiteral("Delete account failed: ") % reason, LogLevel::error);
        return AuthError(kind, AuthError::Code::deletionFailed, QStringLiteral("Failed to delete account"));
    };
    authLog(QStringLiteral("Deleting user account"));
    const Loading loading(session);
    const auto generation = session->generation;
    AuthHTTPAnswer answer;
    for (const bool isRetry : {false, true}) {
        if (isRetry || session->isTokenExpired()) {
            std::optional<AuthError> failure;
            try {
                co_await refresh(session);
            } catch (const AuthError& error) {
                failure = error;
            }
            if (failure)
                throw failed(failure->isAuthenticationError() ? AuthError::Kind::authentication
                                                              : AuthError::Kind::transport,
                             QString::fromUtf8(failure->what()));
        }
        const auto token = session->config.tokenStorage->accessToken();
        if (session->generation != generation || !token || token->isEmpty())
            throw failed(AuthError::Kind::authentication, QStringLiteral("Not authenticated"));
        answer = co_await session->http.send(
            {.method = "DELETE", .url = session->apiURL(QStringLiteral("/users/me")), .accessToken = *token},
            session->config.requestTimeout);
        if (answer.status != statusUnauthorized)
            break;
    }
    if (!isSuccess(answer))
        throw failed(answer.isRejection() ? AuthError::Kind::authentication : AuthError::Kind::transport,
                     answer.description());
    authLog(QStringLiteral("Account deleted successfully"));
    // Another session may have begun in the meantime; it does not belong to the deleted account.
    if (session->generation != generation)
        co_return;
    authLog(QStringLiteral("Logging out user"));
    session->end();
    authLog(QStringLiteral("User logged out successfully"));
}

} // namespace quillo
