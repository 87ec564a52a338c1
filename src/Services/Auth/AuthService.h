#pragma once

#include "Concurrency/Clock.h"
#include "Services/Auth/AuthConfig.h"
#include "Services/Auth/AuthServiceProtocol.h"

#include <QUrl>

#include <functional>
#include <memory>

namespace quillo {

struct AuthSession;

/// Signs the user in through the browser (authorization code with PKCE: RFC 6749, RFC 7636, RFC 8252), and restores,
/// creates, refreshes and ends the session at the account server. Main thread.
///
/// The accounts' pages and tokens are below `authBaseURL`, everything else below `apiBaseURL`. Posts
/// `notification::authUserDidChange` when the user changes and at every sign-in.
class AuthService final : public AuthServiceProtocol {
public:
    using Config = AuthConfig;

    /// `clock` must outlive the service.
    AuthService(Config config, Clock& clock);
    ~AuthService() override;

    Task<bool> checkExistingSession() override;
    Task<> createAnonymousSession() override;
    Task<> refreshAccessToken() override;
    Task<> startLogin() override;
    Task<> startRegistration() override;
    /// Same as `startLogin`; for desktops that show such pages in their own sheet.
    Task<> startLoginViaBrowser();
    void cancelLogin() override;
    void logout() override;
    Task<> deleteAccount() override;

    /// Takes any URL with the scheme of `AuthConfig::redirectURI`. Passes an answer to the waiting sign-in, which a bad
    /// answer ends with an error. Returns why a URL was refused, for the log or a test only: a page in a browser can
    /// send any number of them, so they are not shown to the user.
    std::optional<AuthError> handleCallback(const QUrl& url);
    /// Passes the "url" of `notification::authCallback` to `handleCallback`. A waiting sign-in does this automatically.
    void setupCallbackObserver();
    void removeCallbackObserver();
    /// Redeems a code with the verifier of the waiting sign-in and ends that sign-in. Throws AuthError.
    Task<> exchangeCodeForTokens(QString code);
    /// Starts a session with these tokens after asking the server for their user. Throws AuthError and keeps the
    /// session on failure. Never pass tokens from a URL: any page could then sign the user in to its own account.
    Task<> applyWebTokens(QString accessToken, QString refreshToken);
    /// Sends the device's description to the server. A failure is only logged.
    Task<> syncDeviceInfo();

    [[nodiscard]] bool isAuthenticated() const override;
    [[nodiscard]] bool isLoading() const override;
    [[nodiscard]] bool isSessionExpired() const override;
    [[nodiscard]] bool isNewUser() const override;
    [[nodiscard]] std::optional<AuthUser> currentUser() const override;
    [[nodiscard]] Observation observe(std::function<void()> changed) override;

private:
    std::shared_ptr<AuthSession> m_session;
};

} // namespace quillo
