#include "Core/NotificationCenter.h"
#include "Services/Mock/MockServices.h"

#include <map>

namespace quillo::mock {

namespace {

using namespace std::chrono_literals;

constexpr Clock::Duration personDelay = 2s;

class AuthService final : public AuthServiceProtocol {
public:
    explicit AuthService(Clock& clock) : m_clock(clock) {}

    Task<bool> checkExistingSession() override { co_return m_user.has_value(); }
    Task<> createAnonymousSession() override {
        setUser(AuthUser{QStringLiteral("mock-anonymous"), {}, {}, true});
        co_return;
    }
    Task<> refreshAccessToken() override { co_return; }

    Task<> startLogin() override { return signIn(false); }
    Task<> startRegistration() override { return signIn(true); }
    void cancelLogin() override { m_signIn.request_stop(); }
    void logout() override { setUser(std::nullopt); }
    Task<> deleteAccount() override {
        logout();
        co_return;
    }

    [[nodiscard]] bool isAuthenticated() const override { return m_user.has_value(); }
    [[nodiscard]] bool isLoading() const override { return m_isWaiting; }
    [[nodiscard]] bool isNewUser() const override { return m_isNewUser; }
    [[nodiscard]] std::optional<AuthUser> currentUser() const override { return m_user; }

    Observation observe(std::function<void()> changed) override {
        const auto id = m_nextObserver++;
        m_observers->emplace(id, std::move(changed));
        return Observation([observers = m_observers, id] { observers->erase(id); });
    }

private:
    Task<> signIn(bool isNew) {
        cancelLogin();
        m_signIn = std::stop_source();
        const auto token = m_signIn.get_token();
        m_isWaiting = true;
        const bool arrived = co_await m_clock.sleep(personDelay, token);
        m_isWaiting = false;
        if (!arrived)
            throw AuthError(AuthError::Kind::cancelled, AuthError::Code::cancelled, QStringLiteral("Cancelled"));
        m_isNewUser = isNew;
        setUser(AuthUser{QStringLiteral("mock-user"), QStringLiteral("ada@example.org"), QStringLiteral("Ada Lovelace"),
                         false});
    }

    void setUser(const std::optional<AuthUser>& user) {
        m_user = user;
        const auto observers = *m_observers;
        for (const auto& [id, observer] : observers)
            observer();
        NotificationCenter::shared().post(notification::authUserDidChange);
    }

    Clock& m_clock;
    std::optional<AuthUser> m_user;
    bool m_isWaiting = false;
    bool m_isNewUser = false;
    std::stop_source m_signIn;
    int m_nextObserver = 0;
    std::shared_ptr<std::map<int, std::function<void()>>> m_observers =
        std::make_shared<std::map<int, std::function<void()>>>();
};

} // namespace

std::unique_ptr<AuthServiceProtocol> createAuthService(Clock& clock) { return std::make_unique<AuthService>(clock); }

} // namespace quillo::mock
