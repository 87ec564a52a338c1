#include "Services/Auth/AuthFixture.h"

using namespace quillo;
using namespace quillo::test;

namespace {

class AccountTest : public AuthFixture {
protected:
    AccountTest() {
        script = [this](const auto& request) {
            if (request.head.contains("/oauth/token "))
                return refreshAnswer;
            if (request.head.contains("/users/me/device "))
                return deviceAnswer;
            return answer;
        };
    }

    void restoreSession(int secondsLeft) {
        storeSession(3600);
        ASSERT_TRUE(await(service().checkExistingSession()));
        storeSession(secondsLeft);
    }

    QByteArray refreshAnswer = ok(tokensJson);
    QByteArray deviceAnswer = ok("{}");
};

TEST_F(AccountTest, AnAccountIsDeletedWithAValidTokenOrStays) {
    struct Case {
        const char* name;
        int secondsLeft;
        std::vector<QByteArray> answers; ///< to DELETE, one after the other
        QByteArray refresh;
        const char* ending;
    };
    const auto deleted = ok(R"({"status":"deleted"})");
    const auto no = answerOf("401 No");
    const char* const refused = "authentication: Failed to delete account";
    for (const auto& test : {
             Case{"valid token", 60, {deleted}, {}, "ok"},
             Case{"no content", 60, {answerOf("204 No Content")}, {}, "ok"},
             Case{"expired token", 0, {deleted}, refreshAnswer, "ok"},
             Case{"token that the server ended", 60, {no, deleted}, refreshAnswer, "ok"},
             Case{"no more tokens", 0, {}, refusedToken, refused},
             Case{"refused twice", 60, {no, no}, refreshAnswer, refused},
             Case{"server down", 60, {answerOf("503 Busy")}, {}, "Failed to delete account"},
         }) {
        refreshAnswer = test.refresh;
        restoreSession(test.secondsLeft);
        server.requests.clear();
        size_t next = 0;
        const auto others = script;
        script = [&](const auto& request) {
            return request.head.startsWith("DELETE /api/v1/users/me ") ? test.answers.at(next++) : others(request);
        };
        EXPECT_EQ(outcome(service().deleteAccount()), test.ending) << test.name;
        script = others;
        EXPECT_EQ(next, test.answers.size()) << test.name;
        const bool isDeleted = std::string(test.ending) == "ok";
        EXPECT_EQ(service().isAuthenticated(), !isDeleted) << test.name;
        EXPECT_EQ(storage->accessToken().has_value(), !isDeleted) << test.name;
        EXPECT_FALSE(service().isLoading());
    }
    EXPECT_EQ(log.count("Account deleted successfully"), 4);
    EXPECT_EQ(log.count("Delete account failed: "), 3);
}

TEST_F(AccountTest, TokensFromElsewhereAreAUsersOnceTheServerSaysSo) {
    struct Case {
        QByteArray answer;
        const char* access;
        const char* ending;
    };
    const QByteArray user = R"({"id":"w1","email":"w@example.org","is_anonymous":false})";
    for (const auto& test : {
             Case{ok(user), "two\r\nlines", "authentication: Not authenticated"},
             Case{ok(user), "", "authentication: Not authenticated"},
             Case{answerOf("401 No"), "web-access", "authentication: Not authenticated"},
             Case{answerOf("500 Oops"), "web-access", "status 500"},
             Case{ok("[]"), "web-access", "Failed to decode response: the answer is not a JSON object"},
             Case{ok(user), "web-access", "ok"},
         }) {
        restoreSession(600);
        answer = test.answer;
        EXPECT_EQ(outcome(service().applyWebTokens(QString::fromUtf8(test.access), u"web-refresh"_qs)), test.ending);
        const bool isApplied = std::string(test.ending) == "ok";
        EXPECT_EQ(service().currentUser()->id, isApplied ? u"w1"_qs : u"u1"_qs);
        EXPECT_EQ(storage->accessToken(), isApplied ? u"web-access"_qs : u"old-access"_qs);
    }
    EXPECT_EQ(storage->refreshToken(), u"web-refresh"_qs);
    EXPECT_EQ(storage->accessTokenExpiresAt(), std::nullopt);
    EXPECT_EQ(requestsOf("/api/v1/auth/me"), 4);
    EXPECT_EQ(log.count("applyWebTokens: failed — "), 5);
    EXPECT_EQ(log.count("applyWebTokens: /auth/me returned status 401"), 1);
    EXPECT_EQ(log.count("applyWebTokens: success, user=w1"), 1);
    EXPECT_EQ(log.count("web-"), 0);
}

TEST_F(AccountTest, ADeviceThatCannotBeRecordedIsOnlyLogged) {
    EXPECT_EQ(outcome(service().syncDeviceInfo()), "ok");
    EXPECT_EQ(log.count("Device info sync failed: Not authenticated"), 1);
    storeSession(600);
    deviceAnswer = answerOf("503 Busy");
    EXPECT_EQ(outcome(service().syncDeviceInfo()), "ok");
    EXPECT_EQ(log.count("Device info sync failed: status 503"), 1);
    EXPECT_EQ(storage->accessToken(), u"old-access"_qs);
}

TEST_F(AccountTest, AnObserverHearsNothingAfterItsEnd) {
    int first = 0;
    int second = 0;
    Observation later;
    auto observation = service().observe([&] {
        ++first;
        later.reset();
    });
    later = service().observe([&] { ++second; });
    restoreSession(600);
    EXPECT_GT(first, 1);
    EXPECT_EQ(second, 0) << "ended by the one before it";
    const int before = first;
    observation.reset();
    service().logout();
    EXPECT_EQ(first, before);
    observation = service().observe([] {});
    m_service.reset(); // the observation may outlive the service
}

} // namespace
