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
    // What is still answered belongs to nobody, and nobody is told.
    m_session->observers.clear();
    ++m_session->generation;
    m_session->isAuthenticated = false;
    m_session->endFlow(authFailure::noCallback());
    m_session->removeCallbackObserver();
}

Task<bool> AuthService::checkExistingSession() { return AuthSession::restore(m_session); }

Task<> AuthService::createAnonymousSession() {
    return AuthSession::share(m_session, &AuthSession::creatingAnonymous, AuthSession::requestAnonymous);
}

Task<> AuthService::refreshAccessToken() { return AuthSession::refresh(m_session); }

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
    authLog(QStringLiteral("Checking for existing session"));
    const Loading loading(session);
    auto& storage = *session->config.tokenStorage;
    const auto generation = session->generation;
    if (session->config.loadStorage)
        co_await session->config.loadStorage();
    const auto token = storage.accessToken();
    if (!token || token->isEmpty()) {
        authLog(QStringLiteral("No existing access token found"));
        co_return false;
    }
    const auto user = storedUser(storage);
    if (user)
        authLog(QStringLiteral("User data restored from storage: ") % user->id);
    const auto expiry = storage.accessTokenExpiresAt();
    authLog(QStringLiteral("Token expires at: ") %
            (expiry ? expiry->toString(Qt::ISODate) : QStringLiteral("unknown")));
    if (session->isTokenExpired()) {
        authLog(QStringLiteral("Access token expired, attempting refresh"));
        try {
            co_await refresh(session);
            authLog(QStringLiteral("Session restored via token refresh"));
        } catch (const AuthError& error) {
            if (session->generation == generation && error.isAuthenticationError()) {
                session->end();
                authLog(QStringLiteral("Refresh failed with auth error. Local session cleared."), LogLevel::warn);
                co_return false;
            }
            authLog(QStringLiteral("Refresh failed with non-auth error. Keeping local session for retry."),
                    LogLevel::warn);
        }
    }
    // Whoever signed in or out meanwhile decided otherwise.
    if (session->generation != generation)
        co_return session->isAuthenticated;
    session->setUser(user);
    if (!std::exchange(session->isAuthenticated, true))
        session->changed();
    co_return true;
}

} // namespace quillo
