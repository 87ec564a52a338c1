#pragma once

#include "Services/Auth/AuthServiceProtocol.h"

#include <functional>

namespace quillo {

/// An account whose operations are scripted by a test.
class MockAuthService : public AuthServiceProtocol {
public:
    Task<bool> checkExistingSession() override { co_return user.has_value(); }
    Task<> createAnonymousSession() override {
        ++anonymousSessions;
        if (onAnonymousSession)
            onAnonymousSession();
        co_return;
    }
    Task<> refreshAccessToken() override {
        ++refreshes;
        if (onRefresh)
            onRefresh();
        co_return;
    }
    Task<> startLogin() override { return signIn(QStringLiteral("/login")); }
    Task<> startRegistration() override { return signIn(QStringLiteral("/register")); }
    void cancelLogin() override { ++cancellations; }
    void logout() override { setUser(std::nullopt); }
    Task<> deleteAccount() override {
        if (onDelete)
            onDelete();
        setUser(std::nullopt);
        co_return;
    }
    [[nodiscard]] bool isAuthenticated() const override { return user.has_value(); }
    [[nodiscard]] bool isLoading() const override { return loading; }
    [[nodiscard]] bool isSessionExpired() const override { return expired; }
    [[nodiscard]] bool isNewUser() const override { return newUser; }
    [[nodiscard]] std::optional<AuthUser> currentUser() const override { return user; }
    [[nodiscard]] Observation observe(std::function<void()> changed) override {
        m_observers.push_back(std::make_shared<std::function<void()>>(std::move(changed)));
        return Observation([observer = std::weak_ptr(m_observers.back())] {
            if (const auto alive = observer.lock())
                *alive = nullptr;
        });
    }

    /// Changes the user and notifies the observers.
    void setUser(std::optional<AuthUser> other) {
        user = std::move(other);
        for (const auto& observer : m_observers)
            if (*observer)
                (*observer)();
    }

    std::optional<AuthUser> user = AuthUser{.id = QStringLiteral("user-1"), .isAnonymous = false};
    std::function<void()> onRefresh; ///< may throw AuthError
    std::function<void()> onAnonymousSession;
    std::function<void(const QString& page)> onSignIn; ///< may throw AuthError
    std::function<void()> onDelete;                    ///< may throw AuthError
    bool loading = false;
    bool newUser = false;
    bool expired = false;
    int cancellations = 0;
    int refreshes = 0;
    int anonymousSessions = 0;

private:
    Task<> signIn(QString page) {
        if (onSignIn)
            onSignIn(page);
        co_return;
    }

    std::vector<std::shared_ptr<std::function<void()>>> m_observers;
};

} // namespace quillo
