// The real windows on a real X server with a window manager.

#include "Core/NotificationCenter.h"
#include "Localization/LocalizationManager.h"
#include "Support/Async.h"
#include "UI/Account/AccountWindow.h"
#include "UI/FakeApplication.h"
#include "UI/Keys.h"
#include "UI/RecordingFixture.h"
#include "UI/UserInterface.h"
#include "UI/Welcome/WelcomeWindow.h"

#include <QAccessible>
#include <QGuiApplication>
#include <QQuickItem>

#include <gtest/gtest.h>

using namespace quillo;
using namespace quillo::test;

namespace {

/// Calls `visit` for every item that can be seen in `window`.
void visitItems(const QQuickWindow& window, const std::function<void(QQuickItem&)>& visit) {
    const std::function<void(QQuickItem*)> walk = [&](QQuickItem* item) {
        if (!item->isVisible())
            return;
        visit(*item);
        for (auto* child : item->childItems())
            walk(child);
    };
    walk(window.contentItem());
}

QString nameOf(QQuickItem* item) {
    auto* interface = item ? QAccessible::queryAccessibleInterface(item) : nullptr;
    return interface ? interface->text(QAccessible::Name) : QString();
}

/// Presses Tab until what has the focus is called `name`.
bool tabTo(QQuickWindow& window, const QString& name) {
    for (int count = 0; count < 20; ++count) {
        if (nameOf(window.activeFocusItem()) == name)
            return true;
        press(window, Qt::Key_Tab);
    }
    return false;
}

/// What QML finds fault with, such as a loop of bindings, it only says.
void failOnWarnings(QmlEngineHost& host) {
    QObject::connect(&host.engine(), &QQmlEngine::warnings, [](const QList<QQmlError>& warnings) {
        for (const auto& warning : warnings)
            ADD_FAILURE() << qPrintable(warning.toString());
    });
}

QString text(const char* key) { return LocalizationManager::shared().t(QString::fromLatin1(key)); }

struct WelcomeWindowTest : testing::Test {
    FakeApplication application;
    ManualClock clock{EventExecutor::main()};
    QmlEngineHost host;
    AccountModel account{application};
    std::unique_ptr<WelcomeWindow> window = std::make_unique<WelcomeWindow>(host, application.hooks, account, clock);

    WelcomeWindowTest() { failOnWarnings(host); }
    void SetUp() override { show(*window); }
    static void show(DialogWindow& dialog) {
        dialog.present();
        ASSERT_TRUE(waitUntil([&] { return dialog.isActive() && dialog.isExposed() && dialog.activeFocusItem(); }));
    }
    [[nodiscard]] QString step() const { return window->viewModel().step(); }
    /// Waits for the step, and for the focus, which it places once it has been laid out.
    bool arriveAt(const char* name, const char* focus = "welcome.next") {
        return waitUntil(
            [&] { return step() == QLatin1String(name) && nameOf(window->activeFocusItem()) == text(focus); });
    }
};

TEST_F(WelcomeWindowTest, IsGoneThroughWithTheKeyboardAlone) {
    type(*window, u"fin"_qs);
    press(*window, Qt::Key_Return);
    EXPECT_EQ(application.chosenLanguage, u"fi");
    ASSERT_TRUE(arriveAt("hotkey"));
    EXPECT_TRUE(application.hotkeyObserver);
    press(*window, Qt::Key_Return);
    ASSERT_TRUE(arriveAt("microphone"));
    ASSERT_TRUE(tabTo(*window, u"Desk & Chair Microphone"_qs));
    press(*window, Qt::Key_Down);
    EXPECT_EQ(nameOf(window->activeFocusItem()), u"Built-in Audio");
    EXPECT_EQ(application.chosenMicrophones, QStringList(u"built-in"_qs));
    press(*window, Qt::Key_Left, {}, Qt::AltModifier);
    ASSERT_TRUE(arriveAt("hotkey"));
    press(*window, Qt::Key_Return);
    ASSERT_TRUE(arriveAt("microphone"));
    press(*window, Qt::Key_Return);
    ASSERT_TRUE(arriveAt("account", "account.signIn"));
    EXPECT_FALSE(application.isMicrophoneOpen);
    press(*window, Qt::Key_Return); // what has the focus first
    EXPECT_EQ(account.phase(), u"waiting");
    press(*window, Qt::Key_Escape);
    EXPECT_EQ(account.phase(), u"anonymous");
    ASSERT_TRUE(tabTo(*window, text("welcome.account.without")));
    press(*window, Qt::Key_Space);
    ASSERT_TRUE(arriveAt("ready", "welcome.finish"));
    ASSERT_TRUE(tabTo(*window, text("welcome.ready.launchAtLogin")));
    press(*window, Qt::Key_Space);
    EXPECT_TRUE(application.launchAtLogin);
    ASSERT_TRUE(tabTo(*window, text("welcome.finish")));
    press(*window, Qt::Key_Return);
    EXPECT_EQ(application.finishedWelcomes, 1);
    EXPECT_FALSE(window->isVisible());
    EXPECT_FALSE(application.isUnbalanced);
}

TEST_F(WelcomeWindowTest, ALanguageThatTheServerDoesNotUnderstandIsChosenTwice) {
    application.servedLanguages = QStringList(u"en"_qs);
    application.languagesChanged(); // the server answers while the list is open
    const auto shows = [this](const char* key, const QString& language) {
        bool found = false;
        visitItems(*window, [&](QQuickItem& item) {
            found = found ||
                    (item.isVisible() && item.property("text").toString() == text(key).replace(u"%1"_qs, language));
        });
        return found;
    };
    EXPECT_TRUE(shows("languagePicker.served", LocalizationManager::shared().languageName(u"en"_qs)));
    press(*window, Qt::Key_Return); // on German, the system's language
    EXPECT_TRUE(shows("languagePicker.confirm", LocalizationManager::shared().languageName(u"de"_qs)));
    press(*window, Qt::Key_Down);
    press(*window, Qt::Key_Return); // another one asks again
    press(*window, Qt::Key_Up);
    press(*window, Qt::Key_Return);
    EXPECT_EQ(step(), u"language");
    EXPECT_TRUE(application.chosenLanguage.isEmpty());
    press(*window, Qt::Key_Return);
    EXPECT_EQ(application.chosenLanguage, u"de");
    ASSERT_TRUE(arriveAt("hotkey"));
}

TEST_F(WelcomeWindowTest, LeadsPastTheGuideWhereThereAreNoHotkeys) {
    window.reset();
    application.hotkey.clear();
    window = std::make_unique<WelcomeWindow>(host, application.hooks, account, clock);
    show(*window);
    window->viewModel().goTo(u"hotkey"_qs);
    EXPECT_FALSE(application.hotkeyObserver);
    ASSERT_TRUE(arriveAt("hotkey"));
    ASSERT_TRUE(tabTo(*window, application.hooks.hotkeySteps()));
    press(*window, Qt::Key_Tab); // a text that is only read keeps neither this key
    EXPECT_NE(nameOf(window->activeFocusItem()), application.hooks.hotkeySteps());
    ASSERT_TRUE(tabTo(*window, application.hooks.hotkeySteps()));
    press(*window, Qt::Key_Return); // nor this one
    EXPECT_TRUE(arriveAt("microphone"));
}

TEST_F(WelcomeWindowTest, LightsTheKeyWhileItIsHeld) {
    window->viewModel().goTo(u"hotkey"_qs);
    ASSERT_TRUE(application.hotkeyObserver);
    const auto isLit = [&] {
        bool lit = false;
        visitItems(*window, [&](QQuickItem& item) {
            lit = lit || (item.property("travel").isValid() && item.property("down").toBool());
        });
        return lit;
    };
    EXPECT_FALSE(isLit());
    application.hotkeyObserver(true);
    EXPECT_TRUE(isLit());
    application.hotkeyObserver(false);
    EXPECT_FALSE(isLit());
}

TEST_F(WelcomeWindowTest, ScrollsTheFocusIntoSight) {
    window->resize(window->minimumSize());
    window->viewModel().goTo(u"account"_qs);
    ASSERT_TRUE(arriveAt("account", "account.signIn"));
    const auto isInSight = [&] {
        const auto* item = window->activeFocusItem();
        const auto bottom = item->mapToScene({0, item->height()}).y();
        return item->mapToScene({0, 0}).y() >= 0 && bottom <= window->height() - item->height() / 2;
    };
    ASSERT_TRUE(tabTo(*window, text("welcome.account.without")));
    EXPECT_TRUE(waitUntil(isInSight));
    ASSERT_TRUE(tabTo(*window, text("account.signIn")));
    EXPECT_TRUE(waitUntil(isInSight));
}

TEST_F(WelcomeWindowTest, LetsTheMicrophoneGoWithTheWindow) {
    window->viewModel().goTo(u"microphone"_qs);
    EXPECT_TRUE(application.isMicrophoneOpen);
    window->showMinimized();
    EXPECT_TRUE(waitUntil([&] { return !application.isMicrophoneOpen; })) << "nobody sees the meter";
    window->showNormal();
    EXPECT_TRUE(waitUntil([&] { return application.isMicrophoneOpen; }));
    window->close();
    EXPECT_FALSE(application.isMicrophoneOpen);
    show(*window);
    EXPECT_TRUE(application.isMicrophoneOpen);
    window.reset();
    EXPECT_FALSE(application.isMicrophoneOpen || application.isUnbalanced);
    EXPECT_EQ(application.finishedWelcomes, 0);
}

/// Every state of both windows, in all languages and at three sizes of text.
TEST(DialogWindowTest, NamesEverythingAndCutsNoWordsOff) {
    const auto font = QGuiApplication::font();
    const auto locale = LocalizationManager::shared().locale();
    for (const double scale : {1.0, 1.25, 2.0}) {
        auto scaled = font;
        scaled.setPointSizeF(font.pointSizeF() * scale);
        QGuiApplication::setFont(scaled);
        QmlEngineHost host; // reads the font once
        failOnWarnings(host);
        for (const auto& language : LocalizationStrings::locales()) {
            SCOPED_TRACE(language.toStdString() + " at " + std::to_string(scale));
            LocalizationManager::shared().setLocale(language);
            FakeApplication application;
            application.hooks.listMicrophones = {}; // the names of devices may be cut off
            AccountModel account(application);
            ManualClock clock(EventExecutor::main());
            const auto inspect = [](const QQuickWindow& window, int atLeast) {
                int named = 0;
                visitItems(window, [&](QQuickItem& item) {
                    if (item.activeFocusOnTab()) {
                        EXPECT_FALSE(nameOf(&item).isEmpty()) << item.metaObject()->className();
                        ++named;
                    }
                    // An item that is reused keeps the mark of an earlier text; no text is not cut off.
                    if (const auto text = item.property("text").toString(); !text.isEmpty())
                        EXPECT_FALSE(item.property("truncated").toBool()) << qPrintable(text);
                });
                EXPECT_GE(named, atLeast);
            };
            WelcomeWindow welcome(host, application.hooks, account, clock);
            auto& steps = welcome.viewModel();
            steps.setShown(true);
            welcome.resize(welcome.size().boundedTo({1012, 540}));
            for (;; steps.next()) {
                inspect(welcome, 2);
                if (steps.step() == u"microphone") {
                    application.microphoneFailure(u"refused"_qs);
                    inspect(welcome, 4);
                }
                if (steps.isLast())
                    break;
            }
            for (const auto kind : {AccountState::Kind::none, AccountState::Kind::anonymous,
                                    AccountState::Kind::signedIn, AccountState::Kind::expired})
                for (const bool isBusy : {false, true}) {
                    application.accountState = {.kind = kind, .isBusy = isBusy, .message = u"refused"_qs};
                    account.refresh();
                    AccountWindow window(host, account);
                    inspect(window, 1);
                }
        }
    }
    QGuiApplication::setFont(font);
    LocalizationManager::shared().setLocale(locale);
}

struct AccountWindowTest : WelcomeWindowTest {
    void SetUp() override { window.reset(); }
};

TEST_F(AccountWindowTest, DeletesAfterASecondWordOnly) {
    application.accountState = {.kind = AccountState::Kind::signedIn, .name = u"Ada"_qs};
    account.refresh();
    AccountWindow dialog(host, account);
    show(dialog);
    ASSERT_TRUE(tabTo(dialog, text("account.delete")));
    press(dialog, Qt::Key_Return);
    ASSERT_TRUE(waitUntil([&] { return nameOf(dialog.activeFocusItem()) == text("account.keep"); }));
    press(dialog, Qt::Key_Return); // the harmless answer is the first
    EXPECT_TRUE(application.accountRequests.isEmpty());
    ASSERT_TRUE(tabTo(dialog, text("account.delete")));
    press(dialog, Qt::Key_Return);
    press(dialog, Qt::Key_Escape);
    EXPECT_TRUE(dialog.isVisible());
    ASSERT_TRUE(tabTo(dialog, text("account.delete")));
    press(dialog, Qt::Key_Return);
    const auto signedIn = std::exchange(application.accountState, {}); // signed out elsewhere, and in again
    account.refresh();
    application.accountState = signedIn;
    account.refresh();
    EXPECT_FALSE(tabTo(dialog, text("account.deleteConfirm"))) << "the question was of another time";
    ASSERT_TRUE(tabTo(dialog, text("account.delete")));
    press(dialog, Qt::Key_Return);
    ASSERT_TRUE(tabTo(dialog, text("account.deleteConfirm")));
    press(dialog, Qt::Key_Return);
    EXPECT_EQ(application.accountRequests, QStringList(u"deleteAccount"_qs));
}

struct WindowsOfTheInterface : testing::Test, RecordingFixture {
    FakeApplication application;
    std::unique_ptr<UserInterface> interface =
        createUserInterface(store, application, application.hooks, *application.windowHints);

    /// The window of kind `T` that is open, if any.
    template <class T>
    static T* open() {
        for (auto* window : QGuiApplication::topLevelWindows())
            if (auto* found = qobject_cast<T*>(window))
                return found;
        return nullptr;
    }
};

TEST_F(WindowsOfTheInterface, GoWhenClosedAndTheWelcomeComesBackWhereItWas) {
    interface->showWelcome();
    auto* first = open<WelcomeWindow>();
    ASSERT_TRUE(first);
    first->viewModel().next();
    const auto left = first->viewModel().step();
    first->close();
    ASSERT_TRUE(waitUntil([&] { return !open<WelcomeWindow>(); })) << "a closed window keeps no memory";
    interface->showWelcome();
    ASSERT_TRUE(open<WelcomeWindow>());
    EXPECT_EQ(open<WelcomeWindow>()->viewModel().step(), left);

    NotificationCenter::shared().post(notification::authRequired);
    EXPECT_EQ(open<WelcomeWindow>()->viewModel().step(), left) << "the account is still to come";
    open<WelcomeWindow>()->viewModel().goTo(u"ready"_qs);
    NotificationCenter::shared().post(notification::authRequired);
    EXPECT_EQ(open<WelcomeWindow>()->viewModel().step(), u"account");
    EXPECT_FALSE(open<AccountWindow>()) << "the welcome has the same page";
    open<WelcomeWindow>()->close();
    ASSERT_TRUE(waitUntil([&] { return !open<WelcomeWindow>(); }));
    NotificationCenter::shared().post(notification::showAuthWindow);
    EXPECT_TRUE(open<AccountWindow>());
    interface.reset();
    EXPECT_FALSE(open<AccountWindow>());
}

} // namespace
