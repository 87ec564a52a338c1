#include "SignInFixture.h"

using namespace quillo::test;
using quillo::server::Json;

namespace {

TEST(ServerSignIn, RegistersSignsInAndExchangesTheCode) {
    TestServer server;
    Browser browser(server);
    const auto registered = browser.submit("/auth/register", annsForm);
    ASSERT_EQ(registered.status, 200) << registered.html.data();
    EXPECT_TRUE(registered.shows("&amp;state=a%20state\"")) << "the state comes back as it was";
    const auto first = redeem(server, registered.code());
    ASSERT_EQ(first.status, 200) << first.header.data();
    EXPECT_EQ(first.body["is_new_user"], true);
    EXPECT_EQ(first.body["user"]["email"], "ann@example.org");
    EXPECT_EQ(first.body["user"]["full_name"], "Ann");
    EXPECT_EQ(first.body["user"]["is_anonymous"], false);
    EXPECT_EQ(statusOfMe(server, accessOf(first)), 200);

    const auto signedIn = Browser(server).submit("/auth/login", with(annsForm, {{"email", " ANN@Example.org "}}));
    const auto second = redeem(server, signedIn.code());
    ASSERT_EQ(second.status, 200);
    EXPECT_EQ(second.body["is_new_user"], false);
    EXPECT_EQ(second.body["user"], first.body["user"]);

    const auto renewed = postEncrypted(server, "/auth/oauth/token",
                                       Json{{"grant_type", "refresh_token"},
                                            {"refresh_token", second.body["tokens"]["refresh_token"]},
                                            {"client_id", "quillo-speech-macos"}});
    EXPECT_EQ(renewed.body["user"], first.body["user"]);
}

struct WrongForm {
    const char* path;
    Fields changes;
    int status;
    const char* place; ///< of the message
    const char* shown;
    const char* focused = place; ///< the field the caret goes to
};

TEST(ServerSignIn, ShowsWhatIsWrongInItsPlaceAndKeepsWhatWasTyped) {
    TestServer server;
    ASSERT_EQ(Browser(server).submit("/auth/register", annsForm).status, 200);
    const Fields bob = {{"full_name", "Bob"}, {"email", "bob@example.org"}, {"password", password}};
    const QByteArray tooLong(1025, 'x');
    const WrongForm cases[] = {
        {"/auth/register", {{"email", "ann@example.org"}}, 409, "email", "There is an account"},
        {"/auth/register", {{"email", "bob"}}, 422, "email", "This is not"},
        {"/auth/register", {{"email", ""}}, 422, "email", "Enter"},
        {"/auth/register", {{"email", "a\xff@b.c"}}, 422, "email", "This is not"},
        {"/auth/register", {{"password", "too short"}}, 422, "password", "Use at least"},
        {"/auth/register", {{"password", "Password123"}}, 422, "password", "This password is easy"},
        {"/auth/register", {{"password", "bob@example.org"}}, 422, "password", "The password must"},
        {"/auth/register", {{"password", tooLong}}, 422, "password", "This password is too long"},
        {"/auth/register", {{"full_name", QByteArray(101, 'n')}}, 422, "full_name", "Use at most"},
        {"/auth/login", {{"email", ""}}, 422, "email", "Enter"},
        {"/auth/login", {{"password", ""}}, 422, "password", "Enter"},
        {"/auth/login",
         {{"email", "ann@example.org"}, {"password", "not the right one"}},
         401,
         "alert",
         "The e-mail",
         "password"},
        {"/auth/login", {}, 401, "alert", "The e-mail", "password"},
    };
    for (const auto& [path, changes, status, place, words, focused] : cases) {
        const QByteArray id = place;
        const auto shown = (id == "alert" ? QByteArray("role=\"alert\">") : "id=\"" + id + "-error\">") + words;
        const auto form = with(bob, changes);
        const auto page = Browser(server).submit(path, form);
        EXPECT_EQ(page.status, status) << words;
        EXPECT_TRUE(page.shows(shown)) << words << page.html.data();
        const QByteArray field = QByteArray("<input id=\"") + focused;
        const auto tag = page.html.mid(page.html.indexOf(field));
        EXPECT_TRUE(tag.left(tag.indexOf('>')).contains("aria-describedby") &&
                    tag.left(tag.indexOf('>')).endsWith("autofocus"))
            << words;
        if (std::find(form.begin(), form.end(), Fields::value_type("email", "bob@example.org")) != form.end())
            EXPECT_TRUE(page.shows("value=\"bob@example.org\"")) << words;
        EXPECT_FALSE(page.shows(password)) << "a password is never shown";
        EXPECT_TRUE(page.code().isEmpty());
    }
}

TEST(ServerSignIn, ThePagesSpeakTheLanguageOfTheBrowser) {
    TestServer server;
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"de-AT,de;q=0.9,en;q=0.5", "de", "Passwort"},
        {"fr;q=0.3, RU;q=0.8", "ru", "Пароль"},
        {"pt, *", "en", "Password"},
        {"zh-CN", "zh", "密码"},
        {"de;q=0, es;q=x,,;", "en", "Password"},
        {"", "en", "Password"},
    };
    for (const auto& [languages, code, label] : cases) {
        Browser browser(server);
        browser.languages = languages;
        const auto page = browser.open("/auth/login");
        EXPECT_TRUE(page.shows(QByteArray("<html lang=\"") + code + '"') && page.shows(label)) << page.html.data();
    }
    Browser german(server);
    german.languages = "de";
    EXPECT_TRUE(german.submit("/auth/login", annsForm).shows("role=\"alert\">Die E-Mail-Adresse oder"));
    EXPECT_TRUE(german.open("/auth/login", {}).shows("<h1>Dieser Link funktioniert nicht"));
    EXPECT_TRUE(german.submit("/auth/register", annsForm).shows("Zurück zu Quillo"));
}

TEST(ServerSignIn, ThePagesAreGuardedByTheirHeaders) {
    TestServer server;
    Browser browser(server);
    const auto login = browser.open("/auth/login");
    EXPECT_TRUE(login.shows("href=\"register?" + formEncode(authorization()).replace("&", "&amp;")))
        << login.html.data();
    EXPECT_TRUE(login.headerValue("Set-Cookie").startsWith("__Host-"));
    for (const char* part : {"; Path=/;", "; Secure", "; HttpOnly", "; SameSite=Strict", "; Max-Age=1800"})
        EXPECT_TRUE(login.headerValue("Set-Cookie").contains(part)) << part;
    const auto done = browser.submit("/auth/register", annsForm);
    for (const auto& page : {login, done, browser.open("/auth/register", {}), browser.post("/auth/login", {}, "%")}) {
        EXPECT_EQ(page.headerValue("Content-Type"), "text/html; charset=utf-8") << page.status;
        EXPECT_EQ(page.headerValue("Cache-Control"), "no-store");
        EXPECT_EQ(page.headerValue("Referrer-Policy"), "no-referrer");
        EXPECT_EQ(page.headerValue("X-Content-Type-Options"), "nosniff");
        const auto policy = page.headerValue("Content-Security-Policy");
        for (const char* part : {"default-src 'none'", "form-action 'self' quillo:", "frame-ancestors 'none'"})
            EXPECT_TRUE(policy.contains(part)) << part;
        EXPECT_FALSE(policy.contains("unsafe"));
        EXPECT_TRUE(page.headerValue("Strict-Transport-Security").isEmpty()) << "not for loopback";
    }
}

TEST(ServerSignIn, InTheClearThePagesAnswerOwnNamesAlone) {
    // as a proxy on this machine may ask for
    TestServer server(nullptr, {.hosts = {"quillo.home"}});
    const auto ask = [&](const QByteArray& host) {
        return exchange(server.port(), "GET /auth/login?" + formEncode(authorization()) +
                                           " HTTP/1.1\r\nConnection: close\r\nHost: " + host + "\r\n\r\n");
    };
    for (const char* host : {"127.0.0.1:5", "localhost", "[::1]:80", "quillo.home"}) {
        const auto answer = ask(host);
        EXPECT_EQ(parseAnswer(answer).status, 200) << host;
        EXPECT_TRUE(answer.contains("Set-Cookie: quillo-form-") && !answer.contains("; Secure")) << host;
    }
    // A foreign name that resolves to this machine.
    for (const char* host : {"evil.example", "127.0.0.1.evil.example", "localhost.evil:80", "", "[::1", "127.0.0.1@e"})
        EXPECT_EQ(parseAnswer(ask(host)).status, 421) << host;
}

} // namespace
