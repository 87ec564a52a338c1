// Signing in as a person does: the command, the real browser, the server's real page, and the desktop that hands the
// browser's answer to the application.

#include "AccountDesktop.h"
#include "Support/Async.h"

#include <QUrlQuery>

#include <gtest/gtest.h>

using namespace quillo::test;
using namespace std::chrono_literals;

namespace {

const char* const exchange = "Exchanging authorization code for tokens...";

class SignInBrowserTest : public testing::Test {
protected:
    /// Keeps a picture where the environment asks for them.
    void keepPicture(const QString& name) {
        if (const auto folder = qEnvironmentVariable("QUILLO_PICTURES"); !folder.isEmpty())
            desktop.browser->screenshot(folder + u'/' + name);
    }

    AccountDesktop desktop;
};

TEST_F(SignInBrowserTest, FromAnAnonymousStartToAnAccountAndBack) {
    EXPECT_TRUE(desktop.waitForAccount(u"not signed in"_qs));
    desktop.session.quillo({u"register"_qs});
    ASSERT_TRUE(desktop.browser->waitForPage(u"/auth/register?"_qs));
    keepPicture(u"register.png"_qs);
    desktop.submitForm(true);
    EXPECT_TRUE(desktop.waitForAccount(u"signed in as Ada Lovelace <ada@example.org>"_qs))
        << desktop.account().toStdString();
    keepPicture(u"registered.png"_qs);
    EXPECT_EQ(desktop.logged("Including anonymous_user_id in OAuth request for account merge"), 1);
    EXPECT_TRUE(waitUntil([&] { return desktop.logged("Device info synced: ") == 1; }));

    // The page is still open: its button brings the same answer again, to an application that is done.
    const auto callback = desktop.callback();
    desktop.browser->press(u"a.button"_qs);
    desktop.session.quillo({callback});
    EXPECT_TRUE(desktop.account().startsWith(u"signed in as Ada Lovelace"_qs));
    EXPECT_EQ(desktop.logged(exchange), 1);
    desktop.browser->closePage();

    desktop.session.quillo({u"sign-out"_qs});
    EXPECT_TRUE(desktop.waitForAccount(u"not signed in"_qs));
    EXPECT_TRUE(desktop.signIn(false)) << desktop.account().toStdString();
    keepPicture(u"signed-in.png"_qs);
    EXPECT_EQ(desktop.logged(exchange), 2);
    EXPECT_EQ(desktop.logged("State mismatch"), 0);
}

TEST_F(SignInBrowserTest, ABadAnswerIsRefusedInWordsAndWithoutARequest) {
    ASSERT_TRUE(desktop.signIn(true)) << desktop.account().toStdString();
    desktop.browser->closePage();
    desktop.session.quillo({u"sign-out"_qs});
    ASSERT_TRUE(desktop.waitForAccount(u"not signed in"_qs));
    struct Case {
        const char* name;
        std::function<void()> happens; ///< once the page is open
        const char* message;           ///< of the account command; empty: none, as for who gave up
        int exchanges;
    };
    const auto deliver = [&](const QString& url) { desktop.session.quillo({url}); };
    for (const auto& test : {
             Case{"tampered state", [&] { deliver(u"quillo://auth/callback?code=abc&state=mine"_qs); },
                  "did not belong to this sign-in", 0},
             Case{"no code",
                  [&] {
                      const auto state = QUrlQuery(desktop.browser->address()).queryItemValue(u"state"_qs);
                      deliver(u"quillo://auth/callback?state="_qs + state);
                  },
                  "answer was incomplete", 0},
             Case{"a code for another challenge",
                  [&] {
                      auto page = desktop.browser->address();
                      QUrlQuery query(page);
                      query.removeQueryItem(u"code_challenge"_qs);
                      query.addQueryItem(u"code_challenge"_qs, u"E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"_qs);
                      page.setQuery(query);
                      desktop.browser->goTo(page);
                      ASSERT_TRUE(desktop.browser->waitFor(
                          u"location.href.includes('E9Melhoa') && document.readyState === 'complete'"_qs));
                      desktop.submitForm(false);
                  },
                  "did not complete the sign-in", 1},
             Case{"the page of a sign-in that another one took over",
                  [&] {
                      const auto lost = desktop.browser->address();
                      desktop.browser->closePage();
                      desktop.session.quillo({u"sign-in"_qs});
                      ASSERT_TRUE(desktop.browser->waitForPage(u"/auth/login?"_qs));
                      const auto state = QUrlQuery(lost).queryItemValue(u"state"_qs);
                      desktop.browser->goTo(lost);
                      ASSERT_TRUE(desktop.browser->waitFor(
                          u"location.href.includes('%1') && document.readyState === 'complete'"_qs.arg(state)));
                      desktop.submitForm(false);
                  },
                  "did not belong to this sign-in", 0},
             Case{"turned back on the page", [&] { desktop.browser->press(u"a[href^=\"quillo:\"]"_qs); }, "", 0},
         }) {
        const auto before = desktop.logged(exchange);
        desktop.session.quillo({u"sign-in"_qs});
        ASSERT_TRUE(desktop.browser->waitForPage(u"/auth/login?"_qs)) << test.name;
        EXPECT_TRUE(desktop.account().contains(u"waiting for the browser"_qs));
        test.happens();
        EXPECT_TRUE(desktop.waitForAccount(u"not signed in"_qs)) << test.name;
        const auto said = desktop.account();
        EXPECT_TRUE(*test.message ? said.contains(QString::fromUtf8(test.message)) : !said.contains(u"last attempt"_qs))
            << test.name << ": " << said.toStdString();
        EXPECT_EQ(desktop.logged(exchange) - before, test.exchanges) << test.name;
        keepPicture(QString::fromUtf8(test.name).replace(u' ', u'-') + u".png"_qs);
        desktop.browser->closePage();
    }

    EXPECT_EQ(desktop.logged("Sign-in flow ended: The sign-in was cancelled"), 2) << "turned back, and overtaken";
    EXPECT_TRUE(desktop.signIn(false)) << desktop.account().toStdString();
}

} // namespace
