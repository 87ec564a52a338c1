#include "Core/NotificationCenter.h"
#include "Services/Mock/MockAuthService.h"
#include "Services/Mock/MockServices.h"

namespace quillo::mock {

namespace {

using namespace std::chrono_literals;

constexpr Clock::Duration personDelay = 2s;

class SimulatedAccount final : public MockAuthService {
public:
    explicit SimulatedAccount(Clock& clock) : m_clock(clock) {
        user.reset();
        onAnonymousSession = [this] { setUser(AuthUser{QStringLiteral("mock-anonymous"), {}, {}, true}); };
        m_announcement = observe([] { NotificationCenter::shared().post(notification::authUserDidChange); });
    }

    Task<> startLogin() override { return signIn(false); }
    Task<> startRegistration() override { return signIn(true); }
    void cancelLogin() override { m_signIn.request_stop(); }

private:
    Task<> signIn(bool isNew) {
        cancelLogin();
        m_signIn = std::stop_source();
        const auto token = m_signIn.get_token();
        loading = true;
        const bool arrived = co_await m_clock.sleep(personDelay, token);
        loading = false;
        if (!arrived)
            throw AuthError(AuthError::Kind::cancelled, AuthError::Code::cancelled, QStringLiteral("Cancelled"));
        newUser = isNew;
        setUser(AuthUser{QStringLiteral("mock-user"), QStringLiteral("ada@example.org"), QStringLiteral("Ada Lovelace"),
                         false});
    }

    Clock& m_clock;
    std::stop_source m_signIn;
    Observation m_announcement;
};

} // namespace

std::unique_ptr<AuthServiceProtocol> createAuthService(Clock& clock) {
    return std::make_unique<SimulatedAccount>(clock);
}

} // namespace quillo::mock
