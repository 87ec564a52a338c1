#pragma once

#include "Services/Auth/AuthHTTP.h"
#include "Services/Auth/DeviceIdentity.h"
#include "Services/Auth/TokenStorageProtocol.h"

#include <QUrl>

#include <functional>
#include <memory>

namespace quillo {

/// What the account service is built with.
struct AuthConfig {
    /// The word by which the account servers know the desktop program; see docs/compatibility.md.
    static inline const QString clientId = QStringLiteral("quillo-speech-macos");
    /// Where the server's page sends the browser with the code; the desktop hands such a URL to the application.
    static inline const QString redirectURI = QStringLiteral("quillo://auth/callback");

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

} // namespace quillo
