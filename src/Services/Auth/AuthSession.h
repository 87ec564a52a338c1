#pragma once

#include "Concurrency/AsyncStream.h"
#include "Services/Auth/AuthService.h"
#include "Services/Auth/AuthTokens.h"

#include <vector>

namespace quillo {

/// The state of the service, held by its coroutines as well: one that waits for the server may outlive the service.
struct AuthService::Session {
    /// How the shared refresh ended for one who waits for it.
    struct RefreshOutcome {
        std::optional<AuthError> error;
    };

    Config config;
    Clock& clock;
    AuthHTTP http;
    std::optional<AuthUser> user;
    bool isAuthenticated = false;
    bool isNewUser = false;
    int loading = 0;
    /// Counts the ends of sessions: an answer to a request of an earlier session is not stored.
    uint64_t generation = 0;
    bool isRefreshing = false;
    std::vector<AsyncStream<RefreshOutcome>::Sink> waiting;

    Session(Config settings, Clock& time) : config(std::move(settings)), clock(time), http(config.prepareRequest) {}

    void setUser(const std::optional<AuthUser>& changed);
    void storeTokens(const AuthTokens& tokens) const;
    void end();
    /// The stored device id, or one made now.
    QString deviceId() const;
    [[nodiscard]] QUrl authURL(const QString& path) const;
    [[nodiscard]] QUrl apiURL(const QString& path) const;

    static Task<bool> restore(std::shared_ptr<Session> session);
    static Task<> refresh(std::shared_ptr<Session> session);
    static Task<> requestRefresh(std::shared_ptr<Session> session);
    static Task<> createAnonymous(std::shared_ptr<Session> session);
};

} // namespace quillo
