#include "App/Account/SessionCheck.h"
#include "Services/Mock/MockAuthService.h"
#include "Support/Async.h"
#include "Support/LogLines.h"

#include <gtest/gtest.h>

using namespace quillo;
using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

class SessionCheckTest : public testing::Test {
protected:
    SessionCheckTest() { m_auth.user.reset(); }
    SessionCheck& begin() {
        m_check.emplace(m_auth, m_clock, m_tasks,
                        [this](SessionCheck::Outcome outcome, const QString&) { m_outcomes.push_back(outcome); });
        m_check->scheduleFallback();
        return *m_check;
    }

    LogLines m_log;
    ManualClock m_clock{EventExecutor::main()};
    TaskRunner m_tasks{[](const QString&, const QString& error) { ADD_FAILURE() << error.toStdString(); }};
    MockAuthService m_auth;
    std::vector<SessionCheck::Outcome> m_outcomes;
    std::optional<SessionCheck> m_check;
};

constexpr auto fallbackLine = "auth window didn't trigger session check within 3s";
constexpr auto skippedLine = "checkSession(): session already active (fallback path completed first), skipping";

TEST_F(SessionCheckTest, TheWindowThatAsksInTimeIsTheOnlyOne) {
    m_auth.user = AuthUser{u"u"_qs, {}, {}, false};
    auto& check = begin();
    m_clock.advance(2999ms);
    check.checkSession();
    m_clock.advance(1h);
    check.checkSession();
    EXPECT_EQ(m_outcomes, std::vector{SessionCheck::Outcome::restored});
    EXPECT_EQ(m_log.count(fallbackLine), 0);
    EXPECT_EQ(m_auth.anonymousSessions, 0);
}

TEST_F(SessionCheckTest, WithoutAWindowItHappensAfterThreeSecondsAndTheWindowThenSkips) {
    auto& check = begin();
    m_clock.advance(3s);
    EXPECT_EQ(m_outcomes, std::vector{SessionCheck::Outcome::madeAnonymous});
    EXPECT_EQ(m_log.count(fallbackLine), 1);
    check.checkSession();
    EXPECT_EQ(m_log.count(skippedLine), 1);
    EXPECT_EQ(m_outcomes.size(), 1U);
    EXPECT_EQ(m_auth.anonymousSessions, 1);
}

TEST_F(SessionCheckTest, ASessionThatCannotBeMadeIsSaid) {
    m_auth.onAnonymousSession = [] {
        throw AuthError(AuthError::Kind::transport, AuthError::Code::anonymousFailed,
                        u"Anonymous authentication failed: no network"_qs);
    };
    begin().checkSession();
    EXPECT_EQ(m_outcomes, std::vector{SessionCheck::Outcome::failed});
    EXPECT_EQ(m_log.count("Session fallback: anonymous auth failed — Anonymous authentication failed: no network"), 1);
}

} // namespace
