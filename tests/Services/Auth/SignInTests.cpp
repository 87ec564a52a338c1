#include "Services/Auth/AuthFixture.h"
#include "Services/Auth/PKCE.h"

#include <nlohmann/json.hpp>

using namespace quillo;
using namespace quillo::test;
using testing::HasSubstr;
using testing::Not;

namespace {

class SignInTest : public AuthFixture {
protected:
    SignInTest() {
        script = [this](const auto& request) {
            if (request.head.contains("/auth/anonymous "))
                return anonymousAnswer;
            if (request.head.contains("/oauth/token "))
                return request.body.contains("refresh_token") ? refreshAnswer : exchangeAnswer;
            return ok("{}");
        };
    }

    Ending begin() { return Ending(service().startLogin()); }

    // An empty one leaves the client waiting.
    QByteArray anonymousAnswer = ok(anonymousJson);
    QByteArray exchangeAnswer = ok(accountJson);
    QByteArray refreshAnswer = ok(tokensJson);
};

TEST_F(SignInTest, TheBrowserIsSentToTheServersPageAndItsCodeIsRedeemed) {
    int changes = 0;
    const auto observation = service().observe([&] { ++changes; });
    int users = 0;
    const auto announced =
        QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted,
                         [&](const QString& name) { users += name == notification::authUserDidChange; });
    const Ending ending(service().startRegistration());
    ASSERT_EQ(pages.size(), 1);
    EXPECT_EQ(pages[0].path(), u"/auth/register"_qs);
    const auto shownItems = [&] {
        QStringList items;
        for (const auto& [name, value] : QUrlQuery(pages.back()).queryItems(QUrl::FullyDecoded))
            items << name + u'=' + value;
        return items;
    };
    EXPECT_EQ(shownItems(), QStringList({u"client_id=quillo-speech-macos"_qs, u"redirect_uri=quillo://auth/callback"_qs,
                                         u"response_type=code"_qs, u"code_challenge="_qs + shown(u"code_challenge"_qs),
                                         u"code_challenge_method=S256"_qs, u"state="_qs + shown(u"state"_qs)}));
    EXPECT_TRUE(service().isLoading());
    EXPECT_FALSE(ending.isThere());
    // As the desktop brings it.
    NotificationCenter::shared().post(notification::authCallback, {{u"url"_qs, goodCallback()}});
    EXPECT_EQ(ending.text(), "ok");

    const auto& sent = server.requests[0];
    EXPECT_TRUE(sent.head.startsWith("POST /auth/oauth/token HTTP/1.1\r\n"));
    EXPECT_THAT(sent.head.toLower().toStdString(), Not(HasSubstr("authorization:")));
    const auto body = nlohmann::json::parse(sent.body.toStdString());
    EXPECT_EQ(body["grant_type"], "authorization_code");
    EXPECT_EQ(body["code"], "the-code");
    EXPECT_EQ(body["redirect_uri"], "quillo://auth/callback");
    EXPECT_EQ(body["client_id"], "quillo-speech-macos");
    const auto verifier = QString::fromStdString(body["code_verifier"]);
    EXPECT_EQ(PKCE::challenge(verifier, PKCE::ChallengeMethod::S256), shown(u"code_challenge"_qs));

    EXPECT_EQ(storage->accessToken(), u"new-access"_qs);
    EXPECT_EQ(storage->accessTokenExpiresAt(), clock.wallTime().addSecs(3600));
    EXPECT_EQ(service().currentUser()->fullName, u"Ada"_qs);
    EXPECT_TRUE(service().isAuthenticated());
    EXPECT_TRUE(service().isNewUser());
    EXPECT_FALSE(service().isLoading());
    EXPECT_GE(changes, 3) << "loading, signed in, loaded";
    EXPECT_EQ(users, 1);
    QObject::disconnect(announced);
    ASSERT_TRUE(waitUntil([&] { return requestsOf("/users/me/device") == 1; }));
    EXPECT_THAT(server.requests[1].head.toStdString(), HasSubstr("Authorization: Bearer new-access\r\n"));
    EXPECT_THAT(server.requests[1].body.toStdString(), HasSubstr(R"({"device_id":)"));
    ASSERT_TRUE(waitUntil([&] { return log.count("Device info synced: ") == 1; }));
    EXPECT_EQ(clock.pending(), 0U) << "the limit ended with the sign-in";
    for (const auto& line :
         {"Starting registration flow", "Generated PKCE pair, challenge: ", "Generated state: ",
          "Callback observer setup for URL scheme", "Opening auth URL in default browser: http://localhost",
          "Auth URL opened in default browser successfully", "Received callback URL: quillo://auth/callback?",
          "State verification passed", "Exchanging authorization code for tokens...", "Tokens stored in keychain",
          "Authentication successful for user: a1"})
        EXPECT_EQ(log.count(line), 1) << line;
    for (const auto& secret : {shown(u"state"_qs), shown(u"code_challenge"_qs), verifier, u"the-code"_qs,
                               u"new-access"_qs, u"new-refresh"_qs})
        EXPECT_EQ(log.count(secret.toStdString()), 0) << secret.toStdString();
}

TEST_F(SignInTest, ABadAnswerEndsTheSignInWithoutATokenRequest) {
    const char* const foreign = "Security validation failed";
    const char* const incomplete = "No authorization code received";
    const char* const cancelled = "cancelled: The sign-in was cancelled";
    const char* const unread = "Invalid callback URL"; // the sign-in still waits
    // With the query of the callback, in which STATE is replaced by the correct state; else the whole URL.
    for (const auto& [text, refusal] : std::vector<std::pair<const char*, const char*>>{
             {"?code=c&state=other", foreign},
             {"?code=c", foreign},
             {"?code=c&state=STATEx", foreign},
             {"?state=STATE", incomplete},
             {"?code=&state=STATE", incomplete},
             {"?access_token=a&refresh_token=b&state=STATE", incomplete},
             {"?error=server_error&error_description=Come+back%20later.&state=STATE",
              "Server returned error: Come back later."},
             {"?error=server_error&state=STATE&code=c", "Server returned error: server_error"},
             {"?error=e&error_description=Call+this+number&state=other", foreign},
             {"?error=access_denied&state=STATE", cancelled},
             {"?code=c&code=d&state=STATE", unread},
             {"quillo://evil/callback?code=c&state=STATE", unread},
         }) {
        SCOPED_TRACE(text);
        const auto ending = begin();
        const QString base = *text == '?' ? u"quillo://auth/callback"_qs : QString();
        const auto url = base + QString::fromUtf8(text).replace(u"STATE"_qs, shown(u"state"_qs));
        EXPECT_EQ(describe(service().handleCallback(QUrl(url))), refusal);
        EventExecutor::main().drain();
        EXPECT_EQ(ending.isThere(), refusal != unread);
        service().cancelLogin();
        EXPECT_EQ(ending.text(), refusal == unread ? cancelled : refusal);
        EXPECT_EQ(describe(service().handleCallback(goodCallback())), foreign) << "it has ended";
    }
    EXPECT_TRUE(server.requests.isEmpty());
    EXPECT_EQ(storage->accessToken(), std::nullopt);
    EXPECT_EQ(service().currentUser(), std::nullopt);
    EXPECT_EQ(clock.pending(), 0U);
    EXPECT_GE(log.count("State mismatch - possible CSRF attack. Expected: "), 4);
    EXPECT_EQ(log.count("No authorization code in callback"), 3);
}

TEST_F(SignInTest, ACallbackIsUsedOnceAndOnlyWhileASignInWaits) {
    EXPECT_EQ(describe(service().handleCallback(QUrl(u"quillo://auth/callback?code=c&state="_qs))),
              "Security validation failed");
    EXPECT_EQ(outcome(service().exchangeCodeForTokens(u"c"_qs)), "Missing code verifier");
    EXPECT_EQ(log.count("Missing PKCE data during token exchange"), 1);
    const auto ending = begin();
    const auto url = goodCallback();
    EXPECT_EQ(service().handleCallback(url), std::nullopt);
    EXPECT_EQ(describe(service().handleCallback(url)), "Security validation failed");
    EXPECT_EQ(outcome(service().exchangeCodeForTokens(u"c"_qs)), "Missing code verifier");
    EXPECT_EQ(ending.text(), "ok");
    EXPECT_EQ(describe(service().handleCallback(url)), "Security validation failed");
    NotificationCenter::shared().post(notification::authCallback, {{u"url"_qs, url}});
    EXPECT_EQ(log.count("Received callback URL: "), 4) << "the observer went with the sign-in";
    EXPECT_EQ(tokenRequests(), 1);

    service().setupCallbackObserver();
    NotificationCenter::shared().post(notification::authCallback, {{u"url"_qs, url}});
    EXPECT_EQ(log.count("Received callback URL: "), 5);
    service().removeCallbackObserver();

    const auto direct = begin();
    EXPECT_EQ(outcome(service().exchangeCodeForTokens(u"by-hand"_qs)), "ok");
    EXPECT_EQ(direct.text(), "ok");
    EXPECT_THAT(server.requests.back().body.toStdString() +
                    server.requests[server.requests.size() - 2].body.toStdString(),
                HasSubstr("by-hand"));
}

TEST_F(SignInTest, ComingTooLateOrGivingUpIsSaid) {
    auto ending = begin();
    clock.advance(std::chrono::seconds(119));
    EXPECT_FALSE(ending.isThere());
    clock.advance(std::chrono::seconds(1));
    EXPECT_EQ(ending.text(), "Login timed out. Please try again.");
    EXPECT_EQ(log.count("Auth flow timeout after 120"), 1);
    EXPECT_FALSE(service().isLoading());

    ending = begin();
    const auto older = goodCallback();
    const auto next = begin();
    EXPECT_EQ(ending.text(), "cancelled: The sign-in was cancelled") << "the later sign-in took over";
    EXPECT_NE(goodCallback(), older);
    // The limit of the first is not that of the second.
    clock.advance(std::chrono::seconds(119));
    EXPECT_EQ(service().handleCallback(goodCallback()), std::nullopt);
    clock.advance(std::chrono::seconds(10));
    EXPECT_EQ(next.text(), "ok");

    hasBrowser = false;
    EXPECT_EQ(begin().text(), "Failed to open browser");
    EXPECT_EQ(log.count("Failed to open URL in default browser"), 1);
    EXPECT_TRUE(service().isAuthenticated()) << "the session of before";
}

TEST_F(SignInTest, NoPageIsShownWhereItCouldBeReadOnTheWay) {
    struct Case {
        const char* base;
        bool isShown;
    };
    for (const auto& test : {Case{"http://127.0.0.1:80/auth", true}, Case{"http://[::1]/auth", true},
                             Case{"https://example.org/auth", true}, Case{"http://example.org/auth", false},
                             Case{"http://127.0.0.1.example.org/auth", false}, Case{"file:///auth", false}}) {
        m_service.reset();
        pages.clear();
        browserAuthBaseURL = QUrl(QString::fromUtf8(test.base));
        const auto ending = begin();
        EXPECT_EQ(pages.size(), test.isShown ? 1 : 0) << test.base;
        service().cancelLogin();
        EXPECT_EQ(ending.text(), test.isShown ? "cancelled: The sign-in was cancelled" : "Invalid authorization URL");
    }
}

TEST_F(SignInTest, AnAnonymousHistoryIsTakenAlongByWhoCanProveIt) {
    struct Case {
        const char* name;
        int secondsLeft;
        QByteArray refresh;
        const char* header; ///< of the exchange; empty: none
    };
    for (const auto& test :
         {Case{"valid", 60, {}, "Authorization: Bearer old-access\r\n"},
          Case{"expired", 0, ok(tokensJson), "Authorization: Bearer new-access\r\n"},
          Case{"rejected", 0, answerOf("401 No"), ""}, Case{"unreachable", 0, answerOf("503 Busy"), ""}}) {
        server.requests.clear();
        m_service.reset();
        refreshAnswer = answerOf("503 Busy");
        storeSession(test.secondsLeft, true);
        ASSERT_TRUE(await(service().checkExistingSession()));
        server.requests.clear();
        refreshAnswer = test.refresh;
        const auto ending = begin();
        EXPECT_EQ(shown(u"anonymous_user_id"_qs), u"u1"_qs);
        service().handleCallback(goodCallback());
        EXPECT_EQ(ending.text(), "ok") << test.name;
        EXPECT_EQ(service().currentUser()->id, u"a1"_qs);
        const auto exchanged = std::find_if(server.requests.begin(), server.requests.end(),
                                            [](const auto& request) { return request.body.contains("the-code"); });
        ASSERT_NE(exchanged, server.requests.end());
        if (*test.header)
            EXPECT_THAT(exchanged->head.toStdString(), HasSubstr(test.header)) << test.name;
        else
            EXPECT_THAT(exchanged->head.toStdString(), Not(HasSubstr("Authorization"))) << test.name;
    }
    // An account's history stays the account's.
    const auto ending = begin();
    EXPECT_EQ(shown(u"anonymous_user_id"_qs), QString());
}

TEST_F(SignInTest, ARefusedExchangeLeavesTheSessionAsItWas) {
    storeSession(600, true);
    ASSERT_TRUE(await(service().checkExistingSession()));
    struct Case {
        QByteArray answer;
        const char* text;
    };
    for (const auto& test :
         {Case{answerOf("400 Bad Request", R"({"error":"invalid_grant"})"), "Token exchange failed with status: 400"},
          Case{answerOf("500 Oops"), "Token exchange failed with status: 500"},
          Case{answerOf("409 Conflict", R"({"error":"already_linked"})"), "Account is already linked to an email"},
          Case{answerOf("409 Conflict"), "Failed to link account: status 409"},
          Case{ok("<html>"), "Failed to decode response: the answer is not a JSON object"}}) {
        exchangeAnswer = test.answer;
        const auto ending = begin();
        service().handleCallback(goodCallback());
        EXPECT_EQ(ending.text(), test.text);
        EXPECT_EQ(storage->accessToken(), u"old-access"_qs);
        EXPECT_EQ(service().currentUser()->id, u"u1"_qs);
    }
    EXPECT_EQ(requestsOf("/users/me/device"), 0);
}

TEST_F(SignInTest, WhatEndsASignInEndsItsExchangeToo) {
    exchangeAnswer.clear();
    const std::pair<const char*, std::function<void()>> interruptions[] = {
        {"cancelled", [this] { service().cancelLogin(); }},
        {"logged out", [this] { service().logout(); }},
        {"destroyed", [this] { m_service.reset(); }},
    };
    for (const auto& [name, interrupt] : interruptions) {
        // A new one, as the late answer would also reach a connection that is kept for the next request.
        m_service.reset();
        server.requests.clear();
        const auto ending = begin();
        service().handleCallback(goodCallback());
        ASSERT_TRUE(waitUntil([&] { return tokenRequests() == 1; })) << name;
        interrupt();
        // The one who waits hears of it now, whenever the server answers.
        EXPECT_THAT(ending.text(), testing::AnyOf("cancelled: The sign-in was cancelled", "No callback received"));
        server.answerAll(ok(accountJson));
        ASSERT_TRUE(waitUntil([&] { return server.findChildren<QSslSocket*>().isEmpty(); }));
        EventExecutor::main().drain();
        EXPECT_EQ(storage->accessToken(), std::nullopt) << name;
        EXPECT_FALSE(service().isAuthenticated()) << name;
    }
    m_service.reset();
    // An anonymous session created in the meantime by a hotkey was not the user's decision, so it is replaced.
    const auto ending = begin();
    service().handleCallback(goodCallback());
    ASSERT_TRUE(waitUntil([&] { return tokenRequests() == 2; }));
    EXPECT_EQ(outcome(service().createAnonymousSession()), "ok");
    EXPECT_TRUE(service().currentUser()->isAnonymous);
    server.answerAll(ok(accountJson));
    EXPECT_EQ(ending.text(), "ok");
    EXPECT_EQ(service().currentUser()->id, u"a1"_qs);
}

TEST_F(SignInTest, ASignInOutlivesWhatWasAskedForTheAnonymousSession) {
    storeSession(600, true);
    ASSERT_TRUE(await(service().checkExistingSession()));
    refreshAnswer.clear();
    anonymousAnswer.clear();
    const Ending refreshed(service().refreshAccessToken());
    const Ending made(service().createAnonymousSession());
    ASSERT_TRUE(waitForRequests(2));
    const auto ending = begin();
    service().handleCallback(goodCallback());
    EXPECT_EQ(ending.text(), "ok");
    server.answerAll(ok(responseJson(R"({"id":"late","is_anonymous":true})")));
    // Neither is an error for who waits: there is a session, a better one.
    EXPECT_EQ(refreshed.text(), "ok");
    EXPECT_EQ(made.text(), "ok");
    EXPECT_EQ(service().currentUser()->id, u"a1"_qs);
    EXPECT_FALSE(service().isLoading());
}

} // namespace
