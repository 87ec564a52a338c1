#pragma once

#include "Concurrency/Clock.h"
#include "Services/Auth/AuthConfig.h"
#include "Services/Auth/AuthServiceProtocol.h"

#include <QUrl>

#include <functional>
#include <memory>

namespace quillo {

struct AuthSession;

/// Signs the user in through the browser (authorization code with PKCE: RFC 6749, RFC 7636, RFC 8252), restores, makes,
/// refreshes and ends the session at the account server. Main thread.
///
/// The accounts' pages and tokens are below `authBaseURL`, everything else below `apiBaseURL`. Posts
/// `notification::authUserDidChange` when the user becomes another one, and at every sign-in.
class AuthService final : public AuthServiceProtocol {
public:
    using Config = AuthConfig;

    /// `clock` outlives the service.
    AuthService(Config config, Clock& clock);
    ~AuthService() override;

    Task<bool> checkExistingSession() override;
    Task<> createAnonymousSession() override;
    Task<> refreshAccessToken() override;
    Task<> startLogin() override;
    Task<> startRegistration() override;
    /// As `startLogin`: a desktop that shows such pages in a sheet of its own would do so there, and not here.
    Task<> startLoginViaBrowser();
    void cancelLogin() override;
    void logout() override;
    Task<> deleteAccount() override;

    /// Takes every URL of the scheme that `AuthConfig::redirectURI` has. The answer to the sign-in that waits goes on
    /// to it, and ends it when it is a bad one; whoever waits for the sign-in is told there. Returns why a URL was
    /// refused, for a log or a test: a page in a browser can send any number of them, and the user need not hear of
    /// each.
    std::optional<AuthError> handleCallback(const QUrl& url);
    /// Passes what `notification::authCallback` brings ("url") to `handleCallback`. A sign-in does so by itself for as
    /// long as it waits.
    void setupCallbackObserver();
    void removeCallbackObserver();
    /// Redeems a code with the verifier of the sign-in that waits, which then ends. Throws AuthError.
    Task<> exchangeCodeForTokens(QString code);
    /// Makes the session that of these tokens once the server has named their user. Throws AuthError, with the session
    /// as it was. Not for tokens out of a URL: any page could then sign the user in to an account of its own.
    Task<> applyWebTokens(QString accessToken, QString refreshToken);
    /// Tells the server which device this is. A failure is logged, nothing else.
    Task<> syncDeviceInfo();

    [[nodiscard]] bool isAuthenticated() const override;
    [[nodiscard]] bool isLoading() const override;
    [[nodiscard]] bool isNewUser() const override;
    [[nodiscard]] std::optional<AuthUser> currentUser() const override;
    [[nodiscard]] Observation observe(std::function<void()> changed) override;

private:
    std::shared_ptr<AuthSession> m_session;
};

} // namespace quillo
