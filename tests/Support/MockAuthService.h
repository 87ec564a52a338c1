#pragma once

#include "Services/Auth/AuthServiceProtocol.h"

#include <functional>

namespace quillo::test {

/// An account whose refreshes go as a test says.
class MockAuthService final : public AuthServiceProtocol {
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
    void logout() override { user.reset(); }
    [[nodiscard]] bool isAuthenticated() const override { return user.has_value(); }
    [[nodiscard]] std::optional<AuthUser> currentUser() const override { return user; }

    std::optional<AuthUser> user = AuthUser{.id = QStringLiteral("user-1"), .isAnonymous = false};
    std::function<void()> onRefresh; ///< may throw AuthError
    std::function<void()> onAnonymousSession;
    int refreshes = 0;
    int anonymousSessions = 0;
};

} // namespace quillo::test
