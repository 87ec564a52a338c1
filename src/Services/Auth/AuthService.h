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

/// Restores, makes, refreshes and ends the user's session at the account server. Main thread.
///
/// The accounts' pages and tokens are below `authBaseURL`, everything else below `apiBaseURL`. Posts
/// `notification::authUserDidChange` when the user becomes another one.
class AuthService final : public AuthServiceProtocol {
public:
    static inline const QString clientId = QStringLiteral("quillo-speech-macos");

    struct Config {
        QUrl authBaseURL;
        QUrl apiBaseURL;
        std::shared_ptr<TokenStorageProtocol> tokenStorage;
        AuthHTTP::Prepare prepareRequest;    ///< adds the authorities to trust
        std::function<Task<>()> loadStorage; ///< awaited before the session is looked for; may be empty
        DeviceIdentity device{};
        QString clientVersion;
        std::chrono::milliseconds requestTimeout{30000};
    };

    /// `clock` outlives the service.
    AuthService(Config config, Clock& clock);
    ~AuthService() override;

    Task<bool> checkExistingSession() override;
    Task<> createAnonymousSession() override;
    Task<> refreshAccessToken() override;
    void logout() override;
    [[nodiscard]] bool isAuthenticated() const override;
    [[nodiscard]] std::optional<AuthUser> currentUser() const override;

    /// A session is being restored or made.
    [[nodiscard]] bool isLoading() const;
    /// The account was made by the latest sign-in.
    [[nodiscard]] bool isNewUser() const;

private:
    struct Session;
    std::shared_ptr<Session> m_session;
};

} // namespace quillo
