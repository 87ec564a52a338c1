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

/// Writes a log line in the account's category.
void authLog(const QString& message, LogLevel level = LogLevel::info,
             std::source_location where = std::source_location::current());

/// The state of the service. Its coroutines hold it too, because one that waits for the server may outlive the service.
struct AuthSession : std::enable_shared_from_this<AuthSession> {
    using Self = std::shared_ptr<AuthSession>;

    /// The result of an operation for which several callers may wait.
    struct Outcome {
        std::optional<AuthError> error{};
    };
    /// A running request, shared by all callers that need its result.
    struct SharedRequest {
        std::vector<AsyncStream<Outcome>::Sink> waiting;
    };
    using Shared = std::shared_ptr<SharedRequest>;

    /// A sign-in from the opening of the browser to the stored tokens.
    struct Flow {
        PKCE::PKCEPair pkce;
        QString state;
        QString anonymousUserId;          ///< the user whose history is merged into the account; may be empty
        AsyncStream<Outcome>::Sink ended; ///< the waiting caller's
        bool hasCallback = false;         ///< only one answer is accepted
    };

    /// Marks loading as in progress while it is in scope.
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
    bool isExpired = false; ///< the server ended the session of an account
    bool isSettled = false; ///< the store has been read, and its session is in effect
    int loading = 0;
    /// Counts the changes of the session, to ignore answers to requests of an earlier one.
    uint64_t generation = 0;
    Shared restoring;
    Shared refreshing;
    Shared creatingAnonymous;
    std::shared_ptr<Flow> flow; ///< the sign-in that waits
    QMetaObject::Connection callbackObserver;
    std::map<uint64_t, std::function<void()>> observers;
    uint64_t nextObserver = 0;

    AuthSession(AuthConfig settings, Clock& time);

    // The state and its observers.
    void setUser(const std::optional<AuthUser>& changed);
    void changed();
    /// Marks the session as changed: answers to requests of the previous one are ignored.
    void beginAnother();
    /// Switches to the session of another user, regardless of running requests.
    void adopt(const AuthResponse& response);
    /// The server refused to continue the session.
    void expire();
    void storeTokens(const AuthTokens& tokens) const;
    void end();
    /// Ends the waiting sign-in; without an error it succeeded.
    void endFlow(const std::optional<AuthError>& error);

    /// The stored device id, or a new one.
    QString deviceId() const;
    /// The device's description for the server, as JSON.
    QByteArray deviceRecord() const;
    [[nodiscard]] QUrl authURL(const QString& path) const;
    [[nodiscard]] QUrl apiURL(const QString& path) const;
    [[nodiscard]] bool isTokenExpired() const;

    /// Empty when the browser must not be sent there.
    [[nodiscard]] QUrl authorizationURL(const QString& page, const Flow& waiting) const;
    std::optional<AuthError> handleCallback(const QUrl& url);
    void setupCallbackObserver();
    void removeCallbackObserver();

    static Task<bool> restore(Self session);
    /// Restores the stored session; nothing may replace it before that.
    static Task<> lookForSession(Self session);
    /// Waits until the stored session has been read. True when this call waited and a session was found.
    static Task<bool> settle(Self session);
    static Task<> makeAnonymous(Self session);
    static Task<> refreshNow(Self session);
    static Task<> refreshRestored(Self session, uint64_t of);
    /// Joins the request in `slot`, or starts it.
    static Task<> share(Self session, Shared AuthSession::*slot, Task<> (*request)(Self));
    static Task<> requestRefresh(Self session);
    static Task<> requestAnonymous(Self session);
    static Task<> refresh(Self session) { return share(std::move(session), &AuthSession::refreshing, requestRefresh); }

    static Task<> signIn(Self session, QString page);
    /// Redeems the code and ends the flow with the result, which is why it failed, if it did.
    static Task<std::optional<AuthError>> redeem(Self session, std::shared_ptr<Flow> answered, QString code);
    static Task<> finish(Self session, std::shared_ptr<Flow> answered, QString code);
    static Task<> requestTokens(Self session, std::shared_ptr<Flow> answered, QString code);
    /// The token that proves that the flow's anonymous session is ours, so that its history may be merged; empty
    /// without one.
    static Task<QString> mergeToken(Self session, std::shared_ptr<Flow> answered);
    static Task<> exchange(Self session, QString code);
    static Task<> applyWebTokens(Self session, QString accessToken, QString refreshToken);
    static Task<> syncDevice(Self session);
    static Task<> deleteAccount(Self session);
};

} // namespace quillo
