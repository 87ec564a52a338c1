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
    void TearDown() override {
        if (!HasFailure())
            return;
        desktop.session.keepFolder();
        desktop.session.screenshot(desktop.session.path(QStringLiteral("failure.png")));
        std::cerr << "logs: " << desktop.session.folder().toStdString() << "\n";
    }

    /// Keeps a picture where the environment asks for them.
    void keepPicture(const QString& name) {
        if (const auto folder = qEnvironmentVariable("QUILLO_PICTURES"); !folder.isEmpty())
            desktop.browser->screenshot(folder + u'/' + name);
    }

    AccountDesktop desktop;
};

TEST_F(SignInBrowserTest, FromAnAnonymousStartToAnAccountAndBack) {
    EXPECT_TRUE(desktop.waitForAccount(QStringLiteral("not signed in")));
    desktop.session.quillo({QStringLiteral("register")});
    ASSERT_TRUE(desktop.browser->waitForPage(QStringLiteral("/auth/register?")));
    keepPicture(QStringLiteral("register.png"));
    desktop.submitForm(true);
    EXPECT_TRUE(desktop.waitForAccount(QStringLiteral("signed in as Ada Lovelace <ada@example.org>")))
        << desktop.account().toStdString();
    keepPicture(QStringLiteral("registered.png"));
    EXPECT_EQ(desktop.logged("Including anonymous_user_id in OAuth request for account merge"), 1);
    EXPECT_TRUE(waitUntil([&] { return desktop.logged("Device info synced: ") == 1; }));

    // The page is still open: its button brings the same answer again, to an application that is done.
    const auto callback = desktop.callback();
    desktop.browser->press(QStringLiteral("a.button"));
    desktop.session.quillo({callback});
    EXPECT_TRUE(desktop.account().startsWith(QStringLiteral("signed in as Ada Lovelace")));
    EXPECT_EQ(desktop.logged(exchange), 1);
    desktop.browser->closePage();

    desktop.session.quillo({QStringLiteral("sign-out")});
    EXPECT_TRUE(desktop.waitForAccount(QStringLiteral("not signed in")));
    EXPECT_TRUE(desktop.signIn(false)) << desktop.account().toStdString();
    keepPicture(QStringLiteral("signed-in.png"));
    EXPECT_EQ(desktop.logged(exchange), 2);
    EXPECT_EQ(desktop.logged("State mismatch"), 0);
}

TEST_F(SignInBrowserTest, ABadAnswerIsRefusedInWordsAndWithoutARequest) {
    ASSERT_TRUE(desktop.signIn(true)) << desktop.account().toStdString();
    desktop.browser->closePage();
    desktop.session.quillo({QStringLiteral("sign-out")});
    ASSERT_TRUE(desktop.waitForAccount(QStringLiteral("not signed in")));
    struct Case {
        const char* name;
        std::function<void()> happens; ///< once the page is open
        const char* message;           ///< of the account command; empty: none, as for who gave up
        int exchanges;
    };
    const auto deliver = [&](const QString& url) { desktop.session.quillo({url}); };
    for (const auto& test : {
             Case{"tampered state", [&] { deliver(QStringLiteral("quillo://auth/callback?code=abc&state=mine")); },
                  "did not belong to this sign-in", 0},
             Case{"no code",
                  [&] {
                      const auto state = QUrlQuery(desktop.browser->address()).queryItemValue(QStringLiteral("state"));
                      deliver(QStringLiteral("quillo://auth/callback?state=") + state);
                  },
                  "answer was incomplete", 0},
             Case{"a code for another challenge",
                  [&] {
                      auto page = desktop.browser->address();
                      QUrlQuery query(page);
                      query.removeQueryItem(QStringLiteral("code_challenge"));
                      query.addQueryItem(QStringLiteral("code_challenge"),
                                         QStringLiteral("E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"));
                      page.setQuery(query);
                      desktop.browser->goTo(page);
                      ASSERT_TRUE(desktop.browser->waitFor(
                          QStringLiteral("location.href.includes('E9Melhoa') && document.readyState === 'complete'")));
                      desktop.submitForm(false);
                  },
                  "did not complete the sign-in", 1},
             Case{"the page of a sign-in that another one took over",
                  [&] {
                      const auto lost = desktop.browser->address();
                      desktop.browser->closePage();
                      desktop.session.quillo({QStringLiteral("sign-in")});
                      ASSERT_TRUE(desktop.browser->waitForPage(QStringLiteral("/auth/login?")));
                      const auto state = QUrlQuery(lost).queryItemValue(QStringLiteral("state"));
                      desktop.browser->goTo(lost);
                      ASSERT_TRUE(desktop.browser->waitFor(
                          QStringLiteral("location.href.includes('%1') && document.readyState === 'complete'")
                              .arg(state)));
                      desktop.submitForm(false);
                  },
                  "did not belong to this sign-in", 0},
             Case{"turned back on the page", [&] { desktop.browser->press(QStringLiteral("a[href^=\"quillo:\"]")); },
                  "", 0},
         }) {
        const auto before = desktop.logged(exchange);
        desktop.session.quillo({QStringLiteral("sign-in")});
        ASSERT_TRUE(desktop.browser->waitForPage(QStringLiteral("/auth/login?"))) << test.name;
        EXPECT_TRUE(desktop.account().contains(QStringLiteral("waiting for the browser")));
        test.happens();
        EXPECT_TRUE(desktop.waitForAccount(QStringLiteral("not signed in"))) << test.name;
        const auto said = desktop.account();
        EXPECT_TRUE(*test.message ? said.contains(QString::fromUtf8(test.message))
                                  : !said.contains(QStringLiteral("last attempt")))
            << test.name << ": " << said.toStdString();
        EXPECT_EQ(desktop.logged(exchange) - before, test.exchanges) << test.name;
        keepPicture(QString::fromUtf8(test.name).replace(u' ', u'-') + QStringLiteral(".png"));
        desktop.browser->closePage();
    }

    EXPECT_EQ(desktop.logged("Sign-in flow ended: The sign-in was cancelled"), 2) << "turned back, and overtaken";
    EXPECT_TRUE(desktop.signIn(false)) << desktop.account().toStdString();
}

} // namespace
