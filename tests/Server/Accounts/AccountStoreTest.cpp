#include "Accounts/AccountStore.h"
#include "Accounts/RateLimiter.h"
#include "Foundation/Files.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>

using namespace quillo::server;
using namespace std::chrono_literals;

namespace {

class Accounts : public testing::Test {
protected:
    QTemporaryDir folder;
    std::string file = folder.filePath(QStringLiteral("accounts.sqlite")).toStdString();
    std::chrono::system_clock::time_point now{1'700'000'000s};
    AccountStore store{file, [this] { return now; }};
};

TEST_F(Accounts, ADeviceKeepsItsUserAcrossSignInsAndRestarts) {
    const auto first = store.signInAnonymously("device-1");
    const auto again = store.signInAnonymously("device-1");
    const auto other = store.signInAnonymously("device-2");
    EXPECT_TRUE(first.isNewUser);
    EXPECT_FALSE(again.isNewUser);
    EXPECT_EQ(first.user.id, again.user.id);
    EXPECT_NE(first.user.id, other.user.id);
    AccountStore reopened(file, [this] { return now; });
    EXPECT_EQ(reopened.signInAnonymously("device-1").user.id, first.user.id);
    EXPECT_EQ(reopened.userOf(first.tokens.access)->id, first.user.id);
}

TEST_F(Accounts, AnAccessTokenEndsWithItsLifetime) {
    const auto session = store.signInAnonymously("device");
    now += session.tokens.expiresIn - 1s;
    EXPECT_TRUE(store.userOf(session.tokens.access));
    now += 1s;
    EXPECT_FALSE(store.userOf(session.tokens.access));
    EXPECT_FALSE(store.userOf(session.tokens.refresh)) << "a refresh token opens nothing";
    EXPECT_FALSE(store.userOf(""));
}

TEST_F(Accounts, RefreshRotatesAndAnOldTokenEndsTheWholeSignIn) {
    const auto session = store.signInAnonymously("device");
    const auto elsewhere = store.signInAnonymously("device");
    const auto second = store.refresh(session.tokens.refresh);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->user.id, session.user.id);
    EXPECT_NE(second->tokens.refresh, session.tokens.refresh);
    EXPECT_NE(second->tokens.access, session.tokens.access);

    now += 11s;
    EXPECT_FALSE(store.refresh(session.tokens.refresh)) << "used again after the grace";
    EXPECT_FALSE(store.refresh(second->tokens.refresh)) << "its descendant is ended with it";
    EXPECT_FALSE(store.userOf(second->tokens.access));
    EXPECT_TRUE(store.userOf(elsewhere.tokens.access)) << "another sign-in goes on";
    EXPECT_TRUE(store.refresh(elsewhere.tokens.refresh));
}

TEST_F(Accounts, RefreshesAtOnceAllGetTheSamePair) {
    const auto session = store.signInAnonymously("device");
    const auto first = store.refresh(session.tokens.refresh);
    ASSERT_TRUE(first);
    now += 5s;
    for (int i = 0; i < 20; ++i) {
        const auto again = store.refresh(session.tokens.refresh);
        ASSERT_TRUE(again) << i;
        EXPECT_EQ(again->tokens.access, first->tokens.access);
        EXPECT_EQ(again->tokens.refresh, first->tokens.refresh);
    }
    AccountStore reopened(file, [this] { return now; });
    EXPECT_EQ(reopened.refresh(session.tokens.refresh)->tokens.refresh, first->tokens.refresh)
        << "also when the server was restarted in between";
    EXPECT_TRUE(store.userOf(first->tokens.access));
}

TEST_F(Accounts, RefreshingExtendsASignInAndDisuseEndsIt) {
    auto session = store.signInAnonymously("device");
    for (int month = 0; month < 12; ++month) {
        now += 30 * 24h;
        const auto next = store.refresh(session.tokens.refresh);
        ASSERT_TRUE(next) << month;
        session.tokens = next->tokens;
    }
    now += 91 * 24h;
    EXPECT_FALSE(store.refresh(session.tokens.refresh));
    EXPECT_EQ(store.signInAnonymously("device").user.id, session.user.id) << "the user outlives the tokens";
}

TEST_F(Accounts, TheFileHoldsNeitherTokensNorDeviceIds) {
    const auto session = store.signInAnonymously("a-recognisable-device");
    for (const char* suffix : {"", "-wal"}) {
        const auto content = readFile(file + suffix).value_or("");
        ASSERT_FALSE(content.empty());
        for (const auto& secret : {session.tokens.access, session.tokens.refresh, std::string("a-recognisable-device")})
            EXPECT_EQ(content.find(secret), std::string::npos) << suffix;
    }
}

TEST(ServerRateLimiter, RefillsEvenlyAndCountsEachKeyAlone) {
    std::chrono::steady_clock::time_point now{};
    RateLimiter limiter(3, 60s, [&] { return now; });
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(limiter.admit("a"));
    EXPECT_EQ(limiter.admit("a"), 20s);
    EXPECT_FALSE(limiter.admit("b"));
    now += 19s;
    EXPECT_EQ(limiter.admit("a"), 1s);
    now += 1s;
    EXPECT_FALSE(limiter.admit("a"));
    EXPECT_TRUE(limiter.admit("a"));
    now += 600s;
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(limiter.admit("a"));
    EXPECT_TRUE(limiter.admit("a")) << "no more than the burst is saved up";
}

} // namespace
