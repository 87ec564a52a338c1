// Whose settings are in effect, from the first moment of a start to signing out.

#include "App/Account/AccountSession.h"
#include "Core/NotificationCenter.h"
#include "Services/Mock/MockAuthService.h"
#include "Support/Async.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace quillo;
using namespace quillo::test;

namespace {

const AuthUser anna{.id = u"anna"_qs, .isAnonymous = false};
const AuthUser ben{.id = u"ben"_qs, .isAnonymous = false};
const AuthUser nobody{.id = u"x"_qs, .isAnonymous = true};

class AccountSessionTest : public testing::Test {
protected:
    AccountSessionTest() { auth.user.reset(); }

    /// A start of the application at `server`, up to the answer of the session check.
    void start(const QString& server, const std::optional<AuthUser>& found, bool expired = false) {
        session.reset();
        settings.emplace(preferences, u"en"_qs);
        lastUser.emplace(preferences, server);
        lastUser->applyTo(*settings);
        atStart = microphone();
        auth.user = found;
        auth.expired = expired;
        session.emplace(auth, nullptr, *settings, *lastUser, clock, tasks,
                        AccountSession::Hooks{[] {}, [] {}, [] {}, [] {}});
        if (found)
            become(*found);
        session->sessionCheck().checkSession();
    }
    void become(const AuthUser& user) {
        auth.setUser(user);
        NotificationCenter::shared().post(notification::authUserDidChange);
    }
    QString microphone() const { return settings->selectedMicrophoneId().value_or(u"default"_qs); }

    QTemporaryDir folder;
    Preferences preferences{folder.filePath(u"quillo.ini"_qs)};
    std::optional<UserSettings> settings;
    std::optional<LastUser> lastUser;
    ManualClock clock{EventExecutor::main()};
    TaskRunner tasks{[](const QString&, const QString& error) { ADD_FAILURE() << error.toStdString(); }};
    MockAuthService auth;
    std::optional<AccountSession> session;
    QString atStart;
};

TEST_F(AccountSessionTest, TheLastAccountsSettingsHoldFromTheStartUntilItSignsOut) {
    const auto local = u"local"_qs;
    start(local, anna);
    settings->setSelectedMicrophoneId(u"annas"_qs);
    struct Start {
        const char* name;
        QString server;
        std::optional<AuthUser> found;
        bool expired;
        QString atStart;
        QString after;
    };
    const auto annas = u"annas"_qs;
    const auto none = u"default"_qs;
    for (const auto& test : std::vector<Start>{
             {"again", local, anna, false, annas, annas},
             {"no session was found", local, nobody, false, annas, annas},
             {"the server ended the session", local, nobody, true, annas, annas},
             {"another server", u"b.example.org"_qs, nobody, false, none, none},
             {"another account", local, ben, false, annas, none},
             {"that account again", local, ben, false, none, none},
             {"the first account again", local, anna, false, none, annas},
         }) {
        start(test.server, test.found, test.expired);
        EXPECT_EQ(atStart, test.atStart) << test.name;
        EXPECT_EQ(microphone(), test.after) << test.name;
    }
    session->controller().signOut();
    EXPECT_EQ(microphone(), none);
    start(local, nobody);
    EXPECT_EQ(atStart, none);
}

TEST_F(AccountSessionTest, AnEndedSessionIsSaidOnce) {
    QStringList notices;
    const auto posted = QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted,
                                         [&](const QString& name, const QVariantMap& userInfo) {
                                             if (name == notification::userNotice)
                                                 notices << userInfo.value(u"message"_qs).toString();
                                         });
    start(u"local"_qs, nobody);
    EXPECT_EQ(notices, QStringList());
    start(u"local"_qs, anna, true);
    EXPECT_EQ(notices.size(), 1);
    EXPECT_EQ(session->controller().state().kind, AccountState::Kind::expired);
    QObject::disconnect(posted);
}

} // namespace
