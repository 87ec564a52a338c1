#include "Services/Auth/AuthService.h"

#include "Services/Auth/AuthFailure.h"
#include "Services/Auth/AuthSession.h"

#include <QStringBuilder>

namespace quillo {

namespace {

std::optional<AuthUser> storedUser(const TokenStorageProtocol& storage) {
    const auto data = storage.userData();
    if (!data)
        return std::nullopt;
    try {
        return authCoding::decodeUser(*data);
    } catch (const std::runtime_error& error) {
        authLog(QStringLiteral("Failed to decode response: ") % QString::fromUtf8(error.what()), LogLevel::warn);
        return std::nullopt;
    }
}

} // namespace

AuthService::AuthService(Config config, Clock& clock)
    : m_session(std::make_shared<AuthSession>(std::move(config), clock)) {}

AuthService::~AuthService() {
    // Ignore answers that still arrive, and do not notify observers.
    m_session->observers.clear();
    ++m_session->generation;
    m_session->isAuthenticated = false;
    m_session->endFlow(authFailure::noCallback());
    m_session->removeCallbackObserver();
}

Task<bool> AuthService::checkExistingSession() { return AuthSession::restore(m_session); }

Task<> AuthService::createAnonymousSession() { return AuthSession::makeAnonymous(m_session); }

Task<> AuthService::refreshAccessToken() { return AuthSession::refreshNow(m_session); }

Task<> AuthService::startLogin() {
    authLog(QStringLiteral("Starting login flow"));
    return AuthSession::signIn(m_session, QStringLiteral("/login"));
}

Task<> AuthService::startRegistration() {
    authLog(QStringLiteral("Starting registration flow"));
    return AuthSession::signIn(m_session, QStringLiteral("/register"));
}

Task<> AuthService::startLoginViaBrowser() { return startLogin(); }

void AuthService::cancelLogin() { m_session->endFlow(authFailure::cancelled()); }

std::optional<AuthError> AuthService::handleCallback(const QUrl& url) { return m_session->handleCallback(url); }

void AuthService::setupCallbackObserver() { m_session->setupCallbackObserver(); }

void AuthService::removeCallbackObserver() { m_session->removeCallbackObserver(); }

Task<> AuthService::exchangeCodeForTokens(QString code) { return AuthSession::exchange(m_session, std::move(code)); }

Task<> AuthService::applyWebTokens(QString accessToken, QString refreshToken) {
    return AuthSession::applyWebTokens(m_session, std::move(accessToken), std::move(refreshToken));
}

Task<> AuthService::syncDeviceInfo() { return AuthSession::syncDevice(m_session); }

Task<> AuthService::deleteAccount() { return AuthSession::deleteAccount(m_session); }

bool AuthService::isAuthenticated() const { return m_session->isAuthenticated; }

std::optional<AuthUser> AuthService::currentUser() const { return m_session->user; }

bool AuthService::isLoading() const { return m_session->loading > 0; }

bool AuthService::isSessionExpired() const { return m_session->isExpired; }

bool AuthService::isNewUser() const { return m_session->isNewUser; }

Observation AuthService::observe(std::function<void()> changed) {
    const auto id = m_session->nextObserver++;
    m_session->observers.emplace(id, std::move(changed));
    return Observation([session = std::weak_ptr(m_session), id] {
        if (const auto alive = session.lock())
            alive->observers.erase(id);
    });
}

void AuthService::logout() {
    authLog(QStringLiteral("Logging out user"));
    m_session->end();
    authLog(QStringLiteral("User logged out successfully"));
}

Task<bool> AuthSession::restore(Self session) {
    co_await share(session, &AuthSession::restoring, lookForSession);
    co_return session->isAuthenticated;
}

Task<bool> AuthSession::settle(Self session) {
    if (session->isSettled)
        co_return false;
    co_await share(session, &AuthSession::restoring, lookForSession);
    co_return session->isAuthenticated;
}

Task<> AuthSession::makeAnonymous(Self session) {
    if (!co_await settle(session))
        co_await share(session, &AuthSession::creatingAnonymous, requestAnonymous);
}

Task<> AuthSession::refreshNow(Self session) {
    // Restoring the session has already refreshed its token if needed.
    if (!co_await settle(session) || session->isTokenExpired())
        co_await refresh(session);
}

Task<> AuthSession::lookForSession(Self session) {
    authLog(QStringLiteral("Checking for existing session"));
    const Loading loading(session);
    const auto& storage = *session->config.tokenStorage;
    auto generation = session->generation;
    if (session->config.loadStorage && !session->isSettled)
        co_await session->config.loadStorage();
    session->isSettled = true;
    // The user has signed in or out in the meantime.
    if (session->generation != generation)
        co_return;
    const auto token = storage.accessToken();
    if (!token || token->isEmpty()) {
        authLog(QStringLiteral("No existing access token found"));
        co_return;
    }
    const auto user = storedUser(storage);
    if (!session->isAuthenticated || session->user != user)
        session->beginAnother();
    generation = session->generation;
    if (user)
        authLog(QStringLiteral("User data restored from storage: ") % user->id);
    session->setUser(user);
    if (!std::exchange(session->isAuthenticated, true))
        session->changed();
    const auto expiry = storage.accessTokenExpiresAt();
    authLog(QStringLiteral("Token expires at: ") %
            (expiry ? expiry->toString(Qt::ISODate) : QStringLiteral("unknown")));
    if (session->generation == generation && session->isTokenExpired())
        co_await refreshRestored(session, generation);
}

Task<> AuthSession::refreshRestored(Self session, uint64_t of) {
    authLog(QStringLiteral("Access token expired, attempting refresh"));
    try {
        co_await refresh(session);
        authLog(QStringLiteral("Session restored via token refresh"));
    } catch (const AuthError& error) {
        if (session->generation == of && error.isAuthenticationError()) {
            const bool wasAccount = session->isExpired;
            session->end();
            authLog(QStringLiteral("Refresh failed with auth error. Local session cleared."), LogLevel::warn);
            session->isExpired = wasAccount;
            session->changed();
            co_return;
        }
        authLog(QStringLiteral("Refresh failed with non-auth error. Keeping local session for retry."), LogLevel::warn);
    }
}

} // namespace quillo
