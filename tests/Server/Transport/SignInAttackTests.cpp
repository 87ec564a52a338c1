// Attacks on other users' accounts. After every case the server still works.

#include "SignInFixture.h"

#include "Foundation/Files.h"

#include <set>

using namespace quillo::test;
using quillo::server::Json;
using namespace std::chrono_literals;

namespace {

class SignInAttack : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(Browser(server).submit("/auth/register", annsForm).status, 200); }
    void TearDown() override {
        clocks.turn(24h); // what was bounded by time is free again
        const auto answer = redeem(server, code());
        EXPECT_EQ(answer.status, 200) << "the server does not serve any more";
    }

    /// A code for Ann, just given.
    QByteArray code() { return Browser(server).submit("/auth/login", annsForm).code(); }
    /// The answers to twelve equal requests for tokens, sent at once.
    std::vector<HttpAnswer> askAtOnce(const Json& body) {
        const auto request = requestBytes("POST", "/oauth/token", "Content-Type: application/json\r\n",
                                          QByteArray::fromStdString(body.dump()));
        return exchangeAtOnce(server, std::vector<QByteArray>(12, request));
    }

    TurnedClocks clocks;
    TestServer server{nullptr, clocks.options()};
};

struct WrongExchange {
    const char* name;
    Json changes;
    std::chrono::seconds later{0};
};

TEST_F(SignInAttack, ACodeIsWorthNothingToAnybodyElse) {
    const WrongExchange cases[] = {
        {"another client", {{"client_id", "another"}}},
        {"no client", {{"client_id", nullptr}}},
        {"another way back", {{"redirect_uri", "quillo://auth/callback/"}}},
        {"a way back in other letters", {{"redirect_uri", "QUILLO://auth/callback"}}},
        {"no way back", {{"redirect_uri", nullptr}}},
        {"another verifier", {{"code_verifier", std::string(43, 'x')}}},
        {"the challenge for the verifier", {{"code_verifier", authorization()[3].second.toStdString()}}},
        {"no verifier", {{"code_verifier", nullptr}}},
        {"an empty verifier", {{"code_verifier", ""}}},
        {"a short verifier", {{"code_verifier", "short"}}},
        {"a verifier with more behind it", {{"code_verifier", std::string(verifier) + std::string("\0", 1)}}},
        {"a verifier that is no text", {{"code_verifier", 1}}},
        {"another grant", {{"grant_type", "password"}}},
        {"a minute later", Json::object(), 60s},
    };
    for (const auto& [name, changes, later] : cases) {
        const auto given = code();
        ASSERT_FALSE(given.isEmpty()) << name;
        clocks.turn(later);
        const auto answer = redeem(server, given, changes);
        EXPECT_EQ(answer.status, 400) << name << answer.body;
        EXPECT_FALSE(answer.body.contains("tokens")) << name;
    }
    for (const char* guess : {"", "x", "' OR 1=1 --"})
        EXPECT_EQ(redeem(server, guess).status, 400) << guess;
}

TEST_F(SignInAttack, ACodeShownWronglyIsUsedUp) {
    const auto given = code();
    EXPECT_EQ(redeem(server, given, {{"code_verifier", std::string(43, 'x')}}).status, 400);
    EXPECT_EQ(redeem(server, given).status, 400);
}

TEST_F(SignInAttack, ACodeShownAgainEndsTheSignInItGave) {
    const auto other = redeem(server, code());
    const auto given = code();
    const auto first = redeem(server, given);
    ASSERT_EQ(first.status, 200);
    clocks.turn(30min); // long after the code itself has expired
    EXPECT_EQ(redeem(server, given).status, 400);
    EXPECT_EQ(statusOfMe(server, accessOf(first)), 401);
    EXPECT_EQ(statusOfMe(server, accessOf(other)), 200) << "another sign-in of the same account goes on";
}

TEST_F(SignInAttack, OneOfManyWhoShowACodeAtOnceGetsSomethingAndThenLosesIt) {
    std::string winner;
    int wins = 0;
    for (const auto& answer : askAtOnce(exchangeOf(code()))) {
        EXPECT_TRUE(answer.status == 200 || answer.status == 400) << answer.status;
        if (answer.status == 200) {
            ++wins;
            winner = accessOf(answer);
        }
    }
    EXPECT_EQ(wins, 1);
    EXPECT_EQ(statusOfMe(server, winner), 401);
}

TEST_F(SignInAttack, ManyRefreshesOfOneTokenAtOnceGiveOnePairToAll) {
    const auto signedIn = redeem(server, code());
    const Json body{{"grant_type", "refresh_token"}, {"refresh_token", signedIn.body["tokens"]["refresh_token"]}};
    std::set<std::string> pairs;
    for (const auto& answer : askAtOnce(body)) {
        ASSERT_EQ(answer.status, 200);
        pairs.insert(answer.body["tokens"].dump());
    }
    EXPECT_EQ(pairs.size(), 1U);
    EXPECT_EQ(statusOfMe(server, Json::parse(*pairs.begin())["access_token"]), 200);
}

struct WrongRequest {
    const char* name;
    Fields changes;
    bool isTold; ///< to the application; otherwise to the person alone
};

TEST_F(SignInAttack, NothingIsSentWhereTheApplicationIsNot) {
    const WrongRequest cases[] = {
        {"another client", {{"client_id", "evil"}}, false},
        {"no client", {{"client_id", {}}}, false},
        {"another way back", {{"redirect_uri", "https://evil.example/"}}, false},
        {"a way back that begins right", {{"redirect_uri", "quillo://auth/callback.evil"}}, false},
        {"a way back with a query", {{"redirect_uri", "quillo://auth/callback?x=https://evil.example"}}, false},
        {"a way back with a user", {{"redirect_uri", "quillo://auth@evil/callback"}}, false},
        {"a script", {{"redirect_uri", "javascript:alert(1)"}}, false},
        {"a header in the way back", {{"redirect_uri", "quillo://auth/callback\r\nX-Evil: 1"}}, false},
        {"no way back", {{"redirect_uri", {}}}, false},
        {"another response", {{"response_type", "token"}}, true},
        {"a plain challenge", {{"code_challenge_method", "plain"}}, true},
        {"no challenge method", {{"code_challenge_method", {}}}, true},
        {"no challenge", {{"code_challenge", {}}}, true},
        {"a short challenge", {{"code_challenge", "abc"}}, true},
        {"a challenge with markup", {{"code_challenge", QByteArray(41, 'a') + "\">"}}, true},
        {"no state", {{"state", {}}}, true},
        {"a header in the state", {{"state", "a\r\nX-Evil: 1"}}, true},
        {"a zero in the state", {{"state", QByteArray("a\0b", 3)}}, true},
        {"a state that is not UTF-8", {{"state", "\xff\xfe"}}, true},
        {"a state too long", {{"state", QByteArray(513, 's')}}, true},
    };
    for (const char* path : {"/auth/login", "/auth/register"}) {
        for (const auto& [name, changes, isTold] : cases) {
            Browser browser(server);
            browser.open(path);
            const auto query = with(authorization(), changes);
            const auto form = formEncode(with(annsForm, {{"form_token", browser.token}}));
            for (const auto& page : {browser.open(path, query), browser.post(path, query, form)}) {
                EXPECT_EQ(page.status, isTold ? 303 : 400) << name;
                const auto location = page.headerValue("Location");
                EXPECT_EQ(location.startsWith("quillo://auth/callback?error="), isTold) << name << location.data();
                EXPECT_FALSE(location.contains("evil")) << name;
                EXPECT_FALSE(page.header.contains("\r\nX-Evil")) << name;
                EXPECT_FALSE(page.shows("evil") || page.shows("javascript:")) << name;
                EXPECT_TRUE(page.code().isEmpty()) << name;
            }
        }
    }
    const auto twice = formEncode(authorization()) + "&redirect_uri=https%3A%2F%2Fevil.example";
    EXPECT_EQ(parseAnswer(server.exchangeEncrypted(requestBytes("GET", "/auth/login?" + twice, {}))).status, 400);
}

struct ForeignForm {
    const char* name;
    QByteArray token; ///< "right" for that of the browser's own page
    bool hasCookie;
    QByteArray headers;
    bool isTaken;
};

TEST_F(SignInAttack, FormsOfOtherPagesAreNotTaken) {
    Browser attacker(server);
    attacker.open("/auth/login");
    const ForeignForm cases[] = {
        {"no token", "", true, {}, false},
        {"a made-up token", "1.x", true, {}, false},
        {"the token of the attacker's own page", attacker.token, true, {}, false},
        {"no cookie", "right", false, {}, false},
        {"from another site", "right", true, "Sec-Fetch-Site: cross-site\r\n", false},
        {"from another port of this host", "right", true, "Sec-Fetch-Site: same-site\r\n", false},
        {"its own, from a browser that says so", "right", true, "Sec-Fetch-Site: same-origin\r\n", true},
        {"its own, from a browser that does not", "right", true, {}, true},
    };
    const auto now = QByteArray::number(
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count());
    for (const auto& [name, token, hasCookie, headers, isTaken] : cases) {
        Browser victim(server);
        victim.open("/auth/login");
        if (!hasCookie)
            victim.cookie.clear();
        const auto form = with(annsForm, {{"form_token", token == "right" ? victim.token : token}});
        const auto page = victim.post("/auth/login", authorization(), formEncode(form), headers);
        EXPECT_EQ(page.status, isTaken ? 200 : 403) << name;
        EXPECT_EQ(page.code().isEmpty(), !isTaken) << name;
        EXPECT_EQ(page.shows("ann@example.org"), false) << "what a foreign form holds is not shown: " << name;
    }
    // A time that was put in front of a signature, and a page left open.
    Browser late(server);
    late.open("/auth/login");
    const auto statusWith = [&](const QByteArray& token) {
        return late.post("/auth/login", authorization(), formEncode(with(annsForm, {{"form_token", token}}))).status;
    };
    const auto signature = late.token.mid(late.token.indexOf('.'));
    for (const auto& token : {now + "9" + signature, "0" + late.token, late.token + "x"})
        EXPECT_EQ(statusWith(token), 403);
    clocks.turn(31min);
    EXPECT_EQ(statusWith(late.token), 403);
}

TEST_F(SignInAttack, ACookieThatWasPlantedIsNotKeptAcrossASignIn) {
    Browser attacker(server);
    attacker.open("/auth/login");
    const auto planted = attacker.cookie;
    Browser victim(server);
    victim.cookie = planted;
    const auto page = victim.submit("/auth/login", annsForm);
    ASSERT_EQ(page.status, 200);
    EXPECT_TRUE(page.headerValue("Set-Cookie").contains("Max-Age=0"));
    // The cookie does not sign anyone in: the attacker, who has it too, is asked for a password.
    EXPECT_TRUE(attacker.open("/auth/login").code().isEmpty());
    EXPECT_EQ(attacker.submit("/auth/login", with(annsForm, {{"password", "a guess of some words"}})).status, 401);
}

TEST_F(SignInAttack, GuessingIsSlowedDownForKnownAndUnknownAccountsAlike) {
    for (const char* email : {"ann@example.org", "nobody@example.org"}) {
        const auto attempt = [&](const char* guess) {
            return Browser(server).submit("/auth/login", {{"email", email}, {"password", guess}});
        };
        QByteArray refused;
        for (int i = 0; i < 5; ++i) {
            const auto page = attempt("a wrong password");
            EXPECT_EQ(page.status, 401) << email << i;
            refused = page.html;
        }
        const auto locked = attempt("a wrong password");
        EXPECT_EQ(locked.status, 429) << email;
        EXPECT_EQ(locked.headerValue("Retry-After"), "30");
        EXPECT_TRUE(locked.shows("Try again in 30 s")) << locked.html.data();
        // The right password is answered the same way.
        const auto right = attempt(password);
        EXPECT_EQ(right.status, 429) << email;
        EXPECT_EQ(right.headerValue("Retry-After"), "30");
        EXPECT_TRUE(right.code().isEmpty());
        clocks.turn(30s);
        EXPECT_EQ(attempt("a wrong password").status, 401) << email;
        EXPECT_EQ(attempt(password).headerValue("Retry-After"), "60") << "the wait grows";
        clocks.turn(60s);
    }
    EXPECT_FALSE(code().isEmpty()) << "the owner gets in when the wait is over";
}

TEST_F(SignInAttack, GuessesAtOnceGainNothing) {
    Browser browser(server);
    browser.open("/auth/login");
    const auto judgedOf = [&](const std::vector<QByteArray>& emails) {
        std::vector<QByteArray> requests;
        for (const auto& email : emails)
            requests.push_back(requestBytes(
                "POST", "/auth/login?" + formEncode(authorization()),
                "Cookie: " + browser.cookie + "\r\nContent-Type: application/x-www-form-urlencoded\r\n",
                formEncode({{"email", email}, {"password", "a wrong password"}, {"form_token", browser.token}})));
        const auto answers = exchangeAtOnce(server, requests);
        return std::count_if(answers.begin(), answers.end(), [](const auto& answer) { return answer.status == 401; });
    };
    EXPECT_EQ(judgedOf(std::vector<QByteArray>(20, "ann@example.org")), 5) << "of one account";
    std::vector<QByteArray> many;
    for (int i = 0; i < 30; ++i)
        many.push_back("user" + QByteArray::number(i) + "@example.org");
    EXPECT_EQ(judgedOf(many), 25) << "of one address, with the five before";
}

TEST_F(SignInAttack, WhatIsShownIsText) {
    const QByteArray markups[] = {
        "\"><script>alert(1)</script>", "' onfocus=alert(1) '", "</title><img src=x>", "&lt;script&gt;", "<!--",
        "\" http-equiv=\"refresh"};
    for (const auto& markup : markups) {
        const auto query = with(authorization(), {{"state", markup}, {"anonymous_user_id", markup}});
        const Fields form = {{"email", markup}, {"full_name", markup}, {"password", markup}};
        for (const char* path : {"/auth/login", "/auth/register"}) {
            const auto shown = Browser(server).submit(path, form, query);
            EXPECT_EQ(shown.status, 422) << markup.data();
            EXPECT_TRUE(shown.shows(" value=\"" +
                                    QString::fromUtf8(markup).toHtmlEscaped().replace(u'\'', u"&#39;"_qs).toUtf8()))
                << shown.html.data();
            for (const auto& page : {Browser(server).open(path, query), shown})
                EXPECT_FALSE(page.shows(markup)) << markup.data();
        }
        const auto page = Browser(server).submit("/auth/login", annsForm, query);
        EXPECT_EQ(page.status, 200);
        EXPECT_FALSE(page.shows(markup)) << markup.data();
    }
    // A name is shown nowhere but handed to the application, as it was.
    const Fields form = {{"full_name", "<b>Bob</b>"}, {"email", "bob@example.org"}, {"password", password}};
    EXPECT_EQ(redeem(server, Browser(server).submit("/auth/register", form).code()).body["user"]["full_name"],
              "<b>Bob</b>");
}

struct Malformed {
    const char* name;
    QByteArray body;
    QByteArray contentType;
    int status;
};

TEST_F(SignInAttack, MalformedFormsAreRefusedWithAPage) {
    const QByteArray form = "application/x-www-form-urlencoded";
    const Malformed cases[] = {
        {"a broken escape", "email=%zz", form, 400},
        {"an escape cut off", "email=%4", form, 400},
        {"too many fields", QByteArray("a=1&").repeated(1000), form, 400},
        {"too large", QByteArray(17000, 'a'), form, 413},
        {"JSON", "{}", "application/json", 415},
        {"a multipart form", "--x\r\n", "multipart/form-data; boundary=x", 415},
        {"nothing", "", form, 403},
    };
    for (const auto& [name, body, contentType, status] : cases) {
        const auto answer = server.exchangeEncrypted(requestBytes("POST", "/auth/login?" + formEncode(authorization()),
                                                                  "Content-Type: " + contentType + "\r\n", body));
        EXPECT_EQ(parseAnswer(answer).status, status) << name;
        EXPECT_TRUE(answer.contains("text/html") && answer.contains("<h1>")) << name;
    }
    for (const auto& [name, value] : Fields{{"email", QByteArray("ann@example.org\0x", 17)},
                                            {"email", "ann@example.org\r\nX-Evil: 1"},
                                            {"password", QByteArray(15000, 'p')},
                                            {"password", "\xc0\x80\xff"}}) {
        const auto page = Browser(server).submit("/auth/login", with(annsForm, {{name, value}}));
        EXPECT_TRUE(page.status == 422 || page.status == 401) << page.status;
        EXPECT_FALSE(page.header.contains("X-Evil"));
        EXPECT_TRUE(page.code().isEmpty());
    }
}

TEST_F(SignInAttack, TheFilesHoldNoSecret) {
    const auto given = code();
    const auto unused = code();
    const auto answer = redeem(server, given);
    const std::string refresh = answer.body["tokens"]["refresh_token"];
    const auto anonymous = server.token("a-recognisable-device");
    const auto planted = {std::string(password),
                          given.toStdString(),
                          unused.toStdString(),
                          accessOf(answer),
                          refresh,
                          anonymous.toStdString(),
                          std::string("a-recognisable-device")};
    for (const char* file : {"accounts.sqlite", "accounts.sqlite-wal"}) {
        const auto content = quillo::server::readFile(server.dataFolder() / file).value_or("");
        ASSERT_FALSE(content.empty());
        for (const auto& secret : planted)
            EXPECT_EQ(content.find(secret), std::string::npos) << file;
    }
}

} // namespace
