#pragma once

#include "Concurrency/AsyncStream.h"
#include "Concurrency/Clock.h"
#include "Concurrency/TaskRunner.h"
#include "Core/Log.h"
#include "Services/Auth/AuthConfig.h"
#include "Services/Auth/AuthServiceProtocol.h"
#include "Services/Auth/AuthTokens.h"
#include "Services/Auth/PKCE.h"

#include <map>
#include <vector>

namespace quillo {

/// Logs under the category of the account.
void authLog(const QString& message, LogLevel level = LogLevel::info,
             std::source_location where = std::source_location::current());

/// The state of the service, held by its coroutines as well: one that waits for the server may outlive the service.
struct AuthSession : std::enable_shared_from_this<AuthSession> {
    using Self = std::shared_ptr<AuthSession>;

    /// How something that several may wait for came out.
    struct Outcome {
        std::optional<AuthError> error{};
    };
    /// A request that is under way for all who asked for it meanwhile.
    struct SharedRequest {
        std::vector<AsyncStream<Outcome>::Sink> waiting;
    };
    using Shared = std::shared_ptr<SharedRequest>;

    /// A sign-in from the opening of the browser to the stored tokens.
    struct Flow {
        PKCE::PKCEPair pkce;
        QString state;
        QString anonymousUserId;          ///< whose history the account is to take over; may be empty
        AsyncStream<Outcome>::Sink ended; ///< of the one who waits for it
        bool hasCallback = false;         ///< it is answered once
    };

    /// Counts what loads for as long as it is in scope.
    class Loading {
    public:
        explicit Loading(Self session);
        ~Loading();
        Loading(const Loading&) = delete;
        Loading& operator=(const Loading&) = delete;

    private:
        Self m_session;
    };

    AuthConfig config;
    Clock& clock;
    AuthHTTP http;
    TaskRunner tasks;
    std::optional<AuthUser> user;
    bool isAuthenticated = false;
    bool isNewUser = false;
    int loading = 0;
    /// Counts the ends of sessions: an answer to a request of an earlier session is not stored.
    uint64_t generation = 0;
    Shared refreshing;
    Shared creatingAnonymous;
    std::shared_ptr<Flow> flow; ///< the sign-in that waits
    QMetaObject::Connection callbackObserver;
    std::map<uint64_t, std::function<void()>> observers;
    uint64_t nextObserver = 0;

    AuthSession(AuthConfig settings, Clock& time);

    // The state and who is told of it.
    void setUser(const std::optional<AuthUser>& changed);
    void changed();
    /// Makes this the session of another user, whatever is under way for the one before.
    void adopt(const AuthResponse& response);
    void storeTokens(const AuthTokens& tokens) const;
    void end();
    /// Ends the sign-in that waits; without an error it succeeded.
    void endFlow(const std::optional<AuthError>& error);

    /// The stored device id, or one made now.
    QString deviceId() const;
    /// What the server learns of the device, as JSON.
    QByteArray deviceRecord() const;
    [[nodiscard]] QUrl authURL(const QString& path) const;
    [[nodiscard]] QUrl apiURL(const QString& path) const;
    [[nodiscard]] bool isTokenExpired() const;

    /// Empty when no browser may be sent there.
    [[nodiscard]] QUrl authorizationURL(const QString& page, const Flow& waiting) const;
    std::optional<AuthError> handleCallback(const QUrl& url);
    void setupCallbackObserver();
    void removeCallbackObserver();

    static Task<bool> restore(Self session);
    /// Joins the request in `slot`, or makes it.
    static Task<> share(Self session, Shared AuthSession::*slot, Task<> (*request)(Self));
    static Task<> requestRefresh(Self session);
    static Task<> requestAnonymous(Self session);
    static Task<> refresh(Self session) { return share(std::move(session), &AuthSession::refreshing, requestRefresh); }

    static Task<> signIn(Self session, QString page);
    /// Redeems the code and ends the flow with what came of it.
    static Task<> finish(Self session, std::shared_ptr<Flow> answered, QString code);
    static Task<> requestTokens(Self session, std::shared_ptr<Flow> answered, QString code);
    /// Proves that the anonymous session of the flow is ours, so that its history may be merged; empty without one.
    static Task<QString> mergeToken(Self session, std::shared_ptr<Flow> answered);
    static Task<> exchange(Self session, QString code);
    static Task<> applyWebTokens(Self session, QString accessToken, QString refreshToken);
    static Task<> syncDevice(Self session);
    static Task<> deleteAccount(Self session);
};

} // namespace quillo
