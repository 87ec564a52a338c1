#pragma once

#include "Concurrency/Clock.h"
#include "Services/Auth/AuthHTTP.h"
#include "Services/Auth/AuthServiceProtocol.h"
#include "Services/Auth/DeviceIdentity.h"
#include "Services/Auth/TokenStorageProtocol.h"

#include <QUrl>

#include <functional>
#include <memory>

namespace quillo {

/// Signs the user in through the browser (authorization code with PKCE: RFC 6749, RFC 7636, RFC 8252), restores, makes,
/// refreshes and ends the session at the account server. Main thread.
///
/// The accounts' pages and tokens are below `authBaseURL`, everything else below `apiBaseURL`. Posts
/// `notification::authUserDidChange` when the user becomes another one, and at every sign-in.
class AuthService final : public AuthServiceProtocol {
public:
    /// The word by which the account servers know the desktop program; see docs/compatibility.md.
    static inline const QString clientId = QStringLiteral("quillo-speech-macos");
    /// Where the server's page sends the browser with the code; the desktop hands such a URL to the application.
    static inline const QString redirectURI = QStringLiteral("quillo://auth/callback");

    struct Config {
        QUrl authBaseURL;
        QUrl apiBaseURL;
        std::shared_ptr<TokenStorageProtocol> tokenStorage;
        AuthHTTP::Prepare prepareRequest;    ///< adds the authorities to trust
        std::function<Task<>()> loadStorage; ///< awaited before the session is looked for; may be empty
        DeviceIdentity device{};
        QString clientVersion;
        std::chrono::milliseconds requestTimeout{30000};
        /// Shows a page in the user's browser; false when there is none. Without it no sign-in is possible.
        std::function<bool(const QUrl&)> openBrowser{};
        /// Where the browser finds the pages, when it is not at `authBaseURL`: no browser trusts the authority that a
        /// local server made for itself, so that on loopback this is plain http. Other hosts must have https.
        QUrl browserAuthBaseURL{};
    };

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

    /// Takes every URL of the scheme that `redirectURI` has. The answer to the sign-in that waits goes on to it, and
    /// ends it when it is a bad one; whoever waits for the sign-in is told there. Returns why a URL was refused, for a
    /// log or a test: a page in a browser can send any number of them, and the user need not hear of each.
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
    [[nodiscard]] bool isSessionExpired() const override;
    [[nodiscard]] bool isNewUser() const override;
    [[nodiscard]] std::optional<AuthUser> currentUser() const override;
    [[nodiscard]] Observation observe(std::function<void()> changed) override;

private:
    struct Session;
    std::shared_ptr<Session> m_session;
};

} // namespace quillo
