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

const AuthUser anna{.id = QStringLiteral("anna"), .isAnonymous = false};
const AuthUser ben{.id = QStringLiteral("ben"), .isAnonymous = false};
const AuthUser nobody{.id = QStringLiteral("x"), .isAnonymous = true};

class AccountSessionTest : public testing::Test {
protected:
    AccountSessionTest() { auth.user.reset(); }

    /// A start of the application at `server`, up to the answer of the session check.
    void start(const QString& server, const std::optional<AuthUser>& found, bool expired = false) {
        session.reset();
        settings.emplace(preferences, QStringLiteral("en"));
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
    QString microphone() const { return settings->selectedMicrophoneId().value_or(QStringLiteral("default")); }

    QTemporaryDir folder;
    Preferences preferences{folder.filePath(QStringLiteral("quillo.ini"))};
    std::optional<UserSettings> settings;
    std::optional<LastUser> lastUser;
    ManualClock clock{EventExecutor::main()};
    TaskRunner tasks{[](const QString&, const QString& error) { ADD_FAILURE() << error.toStdString(); }};
    MockAuthService auth;
    std::optional<AccountSession> session;
    QString atStart;
};

TEST_F(AccountSessionTest, TheLastAccountsSettingsHoldFromTheStartUntilItSignsOut) {
    const auto local = QStringLiteral("local");
    start(local, anna);
    settings->setSelectedMicrophoneId(QStringLiteral("annas"));
    struct Start {
        const char* name;
        QString server;
        std::optional<AuthUser> found;
        bool expired;
        QString atStart;
        QString after;
    };
    const auto annas = QStringLiteral("annas");
    const auto none = QStringLiteral("default");
    for (const auto& test : std::vector<Start>{
             {"again", local, anna, false, annas, annas},
             {"no session was found", local, nobody, false, annas, annas},
             {"the server ended the session", local, nobody, true, annas, annas},
             {"another server", QStringLiteral("b.example.org"), nobody, false, none, none},
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
                                                 notices << userInfo.value(QStringLiteral("message")).toString();
                                         });
    start(QStringLiteral("local"), nobody);
    EXPECT_EQ(notices, QStringList());
    start(QStringLiteral("local"), anna, true);
    EXPECT_EQ(notices.size(), 1);
    EXPECT_EQ(session->controller().state().kind, AccountState::Kind::expired);
    QObject::disconnect(posted);
}

} // namespace
