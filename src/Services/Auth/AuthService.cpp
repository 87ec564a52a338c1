#include "Services/Auth/AuthService.h"

#include "Core/Log.h"
#include "Services/Auth/AuthSession.h"

#include <QStringBuilder>

namespace quillo {

namespace {

void log(const QString& message, LogLevel level = LogLevel::info) { appLog(message, level, QStringLiteral("Auth")); }

/// Counts a restoration under way for as long as it is in scope.
class Loading {
public:
    explicit Loading(int& count) : m_count(count) { ++m_count; }
    ~Loading() { --m_count; }
    Loading(const Loading&) = delete;
    Loading& operator=(const Loading&) = delete;

private:
    int& m_count;
};

std::optional<AuthUser> storedUser(const TokenStorageProtocol& storage) {
    const auto data = storage.userData();
    if (!data)
        return std::nullopt;
    try {
        return authCoding::decodeUser(*data);
    } catch (const std::runtime_error& error) {
        log(QStringLiteral("Failed to decode response: ") % QString::fromUtf8(error.what()), LogLevel::warn);
        return std::nullopt;
    }
}

} // namespace

AuthService::AuthService(Config config, Clock& clock)
    : m_session(std::make_shared<Session>(std::move(config), clock)) {}

AuthService::~AuthService() {
    // What is still answered belongs to nobody.
    ++m_session->generation;
}

Task<bool> AuthService::checkExistingSession() { return Session::restore(m_session); }

Task<> AuthService::createAnonymousSession() { return Session::createAnonymous(m_session); }

Task<> AuthService::refreshAccessToken() { return Session::refresh(m_session); }

bool AuthService::isAuthenticated() const { return m_session->isAuthenticated; }

std::optional<AuthUser> AuthService::currentUser() const { return m_session->user; }

bool AuthService::isLoading() const { return m_session->loading > 0; }

bool AuthService::isNewUser() const { return m_session->isNewUser; }

void AuthService::logout() {
    log(QStringLiteral("Logging out user"));
    m_session->end();
    log(QStringLiteral("User logged out successfully"));
}

Task<bool> AuthService::Session::restore(std::shared_ptr<Session> session) {
    log(QStringLiteral("Checking for existing session"));
    const Loading loading(session->loading);
    auto& storage = *session->config.tokenStorage;
    if (session->config.loadStorage)
        co_await session->config.loadStorage();
    const auto token = storage.accessToken();
    if (!token || token->isEmpty()) {
        log(QStringLiteral("No existing access token found"));
        co_return false;
    }
    const auto user = storedUser(storage);
    if (user)
        log(QStringLiteral("User data restored from storage: ") % user->id);
    const auto expiry = storage.accessTokenExpiresAt();
    log(QStringLiteral("Token expires at: ") % (expiry ? expiry->toString(Qt::ISODate) : QStringLiteral("unknown")));
    if (expiry && *expiry <= session->clock.wallTime()) {
        log(QStringLiteral("Access token expired, attempting refresh"));
        try {
            co_await refresh(session);
            log(QStringLiteral("Session restored via token refresh"));
        } catch (const AuthError& error) {
            if (error.isAuthenticationError()) {
                session->end();
                log(QStringLiteral("Refresh failed with auth error. Local session cleared."), LogLevel::warn);
                co_return false;
            }
            log(QStringLiteral("Refresh failed with non-auth error. Keeping local session for retry."), LogLevel::warn);
        }
    }
    session->setUser(user);
    session->isAuthenticated = true;
    co_return true;
}

} // namespace quillo
