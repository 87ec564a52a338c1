#include "Accounts/AccountSchema.h"
#include "Accounts/AccountStore.h"
#include "Accounts/Credentials.h"
#include "Accounts/PasswordHash.h"
#include "Accounts/RateLimiter.h"
#include "Foundation/Encoding.h"
#include "Foundation/Files.h"

#include <gtest/gtest.h>
#include <QTemporaryDir>

using namespace quillo::server;
using namespace std::chrono_literals;

namespace {

class Accounts : public testing::Test {
protected:
    QTemporaryDir folder;
    std::string file = folder.filePath(u"accounts.sqlite"_qs).toStdString();
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
    EXPECT_TRUE(store.userOf(second->tokens.access));
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
    AccountStore reopened(file, [this] { return now; });
    for (auto* either : {&store, &reopened}) { // also when the server was restarted in between
        const auto again = either->refresh(session.tokens.refresh);
        ASSERT_TRUE(again);
        EXPECT_EQ(again->tokens.access, first->tokens.access);
        EXPECT_EQ(again->tokens.refresh, first->tokens.refresh);
    }
    EXPECT_TRUE(store.userOf(first->tokens.access));
    now += 6s;
    ASSERT_TRUE(store.refresh(first->tokens.refresh));
    const Database database(file, accountMigrations());
    Statement salts(database, "SELECT count(*) FROM refresh_tokens WHERE successor_salt IS NOT NULL");
    ASSERT_TRUE(salts.step());
    EXPECT_EQ(salts.integer(0), 1) << "after the grace nothing leads from a token to its successors";
}

TEST_F(Accounts, AnAnswerThatWasLostIsGivenAgainUntilItsTokensAreUsed) {
    for (const bool usesAccess : {true, false}) {
        const auto session = store.signInAnonymously("device");
        const auto lost = store.refresh(session.tokens.refresh);
        ASSERT_TRUE(lost);
        now += 3 * 24h;
        const auto again = store.refresh(session.tokens.refresh);
        ASSERT_TRUE(again) << "days later, as after a suspend";
        EXPECT_EQ(again->tokens.refresh, lost->tokens.refresh);
        now += 59min;
        EXPECT_TRUE(usesAccess ? store.userOf(again->tokens.access).has_value()
                               : store.refresh(again->tokens.refresh).has_value());
        EXPECT_FALSE(store.refresh(session.tokens.refresh)) << "somebody else has it";
        EXPECT_FALSE(store.userOf(again->tokens.access));
    }
}

TEST_F(Accounts, AnonymousUsersGoWithTheirLastToken) {
    const auto left = store.signInAnonymously("left");
    const auto account = store.addAccount("ann@example.org", std::nullopt, "a hash").value();
    now += 60 * 24h;
    const auto active = store.signInAnonymously("active");
    EXPECT_TRUE(store.abandonedUsers().empty());
    now += 31 * 24h;
    ASSERT_EQ(store.abandonedUsers(), std::vector{left.user.id});
    for (const auto& user : {left.user.id, active.user.id, account.id})
        store.removeAbandoned(user);
    EXPECT_TRUE(store.signInAnonymously("left").isNewUser);
    EXPECT_EQ(store.signInAnonymously("active").user.id, active.user.id);
    EXPECT_TRUE(store.credentialsOf("ann@example.org"));
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

TEST_F(Accounts, KeepsWhatVersionOneHeld) {
    const std::string old = folder.filePath(u"old.sqlite"_qs).toStdString();
    const auto dump = readFile(std::filesystem::path(QUILLO_FIXTURES) / "version1.sql");
    ASSERT_TRUE(dump);
    Database(old, {}).execute(*dump);
    now = std::chrono::system_clock::time_point(1'795'415'760s);
    AccountStore migrated(old, [this] { return now; });
    const std::string user = "6c336efe-3374-4f58-b149-bacf740006e6";
    EXPECT_EQ(migrated.userOf("aliiegAkeYhGkdGwLiw-rO1QkBizznxNRRFWk6RoKz4")->id, user);
    EXPECT_EQ(migrated.signInAnonymously("an old device").user.id, user);
    EXPECT_TRUE(migrated.refresh("n1ws1TbNqye8sDHkb6NcRYqczma7iq5zQA1d2W1RylA"));
    EXPECT_FALSE(migrated.refresh("DPEoNLNGnlmu3uG6ks2uU9Kn8scI15lvqaOjLCXRKbI")) << "was used before";
    EXPECT_TRUE(migrated.addAccount("ann@example.org", "Ann", "a hash"));
}

TEST_F(Accounts, AMergeThatWasCutOffIsKnownAfterwards) {
    const auto anonymous = store.signInAnonymously("device");
    const auto account = store.addAccount("ann@example.org", std::nullopt, "a hash").value();
    const std::string challenge = encodeBase64Url(sha256("verifier"));
    const auto code = store.issueCode({account.id, "client", "back", challenge, anonymous.user.id, false}, "a hash");
    const auto redeemed = store.redeem({code.value(), "client", "back", "verifier", anonymous.tokens.access});
    ASSERT_TRUE(redeemed);
    EXPECT_EQ(redeemed->mergedUser, anonymous.user.id);
    AccountStore restarted(file, [this] { return now; });
    const auto merges = restarted.unfinishedMerges();
    ASSERT_EQ(merges.size(), 1U);
    EXPECT_EQ(merges[0].from, anonymous.user.id);
    EXPECT_EQ(merges[0].to, account.id);
    EXPECT_NE(restarted.signInAnonymously("device").user.id, anonymous.user.id);
    restarted.finishMerge(anonymous.user.id);
    EXPECT_TRUE(restarted.unfinishedMerges().empty());
    restarted.finishMerge(account.id);
    EXPECT_TRUE(restarted.userOf(redeemed->session.tokens.access)) << "only what was merged is removed";
}

TEST_F(Accounts, APasswordThatWasChangedGivesNoCodeAndEndsWhatItGave) {
    const auto account = store.addAccount("ann@example.org", "Ann", "old").value();
    EXPECT_FALSE(store.addAccount("ann@example.org", "Another", "other"));
    const CodeGrant grant{account.id, "client", "back", encodeBase64Url(sha256("verifier")), "", false};
    const auto used = store.issueCode(grant, "old");
    const auto session = store.redeem({used.value(), "client", "back", "verifier", ""});
    const auto unused = store.issueCode(grant, "old");
    ASSERT_TRUE(session && unused);
    EXPECT_TRUE(store.resetPassword("ann@example.org", "new"));
    EXPECT_FALSE(store.resetPassword("nobody@example.org", "new"));
    EXPECT_FALSE(store.userOf(session->session.tokens.access));
    EXPECT_FALSE(store.refresh(session->session.tokens.refresh));
    EXPECT_FALSE(store.redeem({*unused, "client", "back", "verifier", ""}));
    EXPECT_FALSE(store.issueCode(grant, "old")) << "judged before, issued after";
    store.replaceHash({account.id, "old"}, "stronger");
    EXPECT_EQ(store.credentialsOf("ann@example.org")->passwordHash, "new");
}

TEST(ServerPasswords, HashesCarryTheirCostAndAreRenewedWhenItChanges) {
    const PasswordCost weak{.memoryKiB = 64, .passes = 1, .lanes = 1};
    const auto hash = hashPassword("a password", weak);
    EXPECT_NE(hash, hashPassword("a password", weak)) << "salted";
    EXPECT_TRUE(verifyPassword("a password", hash));
    for (const auto& wrong : {std::string("a passwore"), std::string(), std::string("a password\0", 11)})
        EXPECT_FALSE(verifyPassword(wrong, hash)) << wrong;
    EXPECT_FALSE(needsRehash(hash, weak));
    EXPECT_TRUE(needsRehash(hash));
    EXPECT_FALSE(needsRehash(unknownAccountHash())) << "costs as much as a real one";
    EXPECT_FALSE(verifyPassword("a password", unknownAccountHash()));
    EXPECT_THROW(verifyPassword("a password", "nonsense"), std::runtime_error);
}

TEST(ServerCredentials, AnAddressHasOneForm) {
    for (const char* text : {"ann@example.org", " Ann@EXAMPLE.org\t", "ANN@example.ORG"})
        EXPECT_EQ(normalisedEmail(text), "ann@example.org") << text;
    EXPECT_EQ(normalisedEmail("j\u00f6rg@b\u00fcro"), "j\u00f6rg@b\u00fcro");
    for (const auto& text : {std::string("ann"), std::string("@b"), std::string("a@"), std::string("a@b@c"),
                             std::string("a b@c"), std::string("a@.b"), std::string("a@b..c"), std::string("a@b\n"),
                             std::string("a\0@b", 4), std::string("a\xff@b"), std::string("<a@b>"), std::string(" "),
                             std::string(250, 'a') + "@b.org", std::string("a\xc2\x9b@b")})
        EXPECT_FALSE(normalisedEmail(text)) << text;
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
