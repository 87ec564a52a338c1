#include "Support/Async.h"
#include "UI/FakeApplication.h"
#include "UI/Keys.h"
#include "UI/Language/LanguageListModel.h"
#include "UI/Language/LanguagePickerWindow.h"
#include "UI/RecordingFixture.h"
#include "UI/Tray/TrayController.h"

#include <QGuiApplication>
#include <QPalette>
#include <QQmlComponent>

#include <gtest/gtest.h>

#include <cmath>

using namespace quillo;
using namespace quillo::test;

namespace {

QString identity(const QString& key) { return key; }

QAction* entry(const QMenu& menu, const QString& text) {
    for (auto* action : menu.actions())
        if (action->text() == text)
            return action;
    return nullptr;
}

struct TrayTest : testing::Test, RecordingFixture {
    FakeApplication application{&store};
    AccountModel account{application};
    int accountsShown = 0;
    int languageListsShown = 0;
    TrayController tray{store,
                        application,
                        application.hooks,
                        &identity,
                        account,
                        [this] { ++accountsShown; },
                        [this] { ++languageListsShown; },
                        std::make_unique<TrayHost>(*application.windowHints)};
};

TEST_F(TrayTest, EntriesFollowTheRecording) {
    auto* toggle = entry(tray.menu(), u"tray.startDictation"_qs);
    auto* cancel = entry(tray.menu(), u"tray.cancel"_qs);
    ASSERT_TRUE(toggle && cancel);
    EXPECT_FALSE(cancel->isEnabled());
    const auto trigger = [](QAction* action) {
        action->trigger();
        EventExecutor::main().drain();
    };
    trigger(toggle);
    EXPECT_TRUE(store.state().status.is<RecordingState::Connecting>());
    EXPECT_EQ(toggle->text(), u"tray.stopDictation");
    EXPECT_TRUE(cancel->isEnabled());
    trigger(toggle);
    EXPECT_TRUE(store.state().status.is<RecordingState::Processing>());
    EXPECT_FALSE(toggle->isEnabled());
    trigger(cancel);
    EXPECT_TRUE(store.state().status.is<RecordingState::Idle>());
    EXPECT_TRUE(toggle->isEnabled());
}

TEST_F(TrayTest, IconTellsTheStates) {
    const std::vector<std::pair<RecordingAction, TrayIcon>> steps{
        {action::Reset{}, TrayIcon::idle},
        {action::StartRecording{}, TrayIcon::recording},
        {action::SwitchedToOffline{}, TrayIcon::offline},
        {action::StopRecording{}, TrayIcon::processing},
        {action::TranscriptionError{u"m"_qs}, TrayIcon::error},
        {action::ShowCancelledMessage{}, TrayIcon::idle}, // who cancels has not met an error
    };
    for (const auto& [action, icon] : steps) {
        send({action});
        EXPECT_EQ(presentTray(store.state(), &identity).icon, icon) << actionName(action).toStdString();
    }
}

TEST_F(TrayTest, MicrophonesAreAskedForWhenTheMenuOpens) {
    std::vector<std::optional<QString>> chosen;
    application.hooks.selectMicrophone = [&](const std::optional<QString>& id) { chosen.push_back(id); };
    auto* submenu = entry(tray.menu(), u"tray.microphone"_qs)->menu();
    Q_EMIT submenu->aboutToShow();
    auto* desk = entry(*submenu, u"Desk && Chair Microphone"_qs);
    auto* standard = entry(*submenu, u"tray.systemDefaultMicrophone"_qs);
    ASSERT_TRUE(desk && standard);
    EXPECT_TRUE(desk->isChecked());
    EXPECT_FALSE(standard->isChecked());
    desk->trigger();
    standard->trigger();
    EXPECT_EQ(chosen, (std::vector<std::optional<QString>>{u"usb"_qs, std::nullopt}));
}

TEST_F(TrayTest, ShowsTheLikelyLanguagesAndLeadsToTheOthers) {
    application.servedLanguages = QStringList(u"en"_qs);
    auto* submenu = entry(tray.menu(), u"tray.language"_qs)->menu();
    Q_EMIT submenu->aboutToShow();
    EXPECT_LT(submenu->actions().size(), 7);
    auto* german = entry(*submenu, u"Deutsch – languagePicker.notServed"_qs);
    auto* english = entry(*submenu, u"English"_qs);
    auto* others = entry(*submenu, u"tray.moreLanguages"_qs);
    ASSERT_TRUE(german && english && others);
    EXPECT_TRUE(german->isChecked());
    english->trigger();
    EXPECT_EQ(application.chosenLanguage, u"en");
    others->trigger();
    EXPECT_EQ(languageListsShown, 1);
}

TEST_F(TrayTest, AccountIsCalledByItsName) {
    auto* signIn = entry(tray.menu(), u"tray.signIn"_qs);
    ASSERT_TRUE(signIn);
    signIn->trigger();
    EXPECT_EQ(accountsShown, 1);
    application.accountState = {.kind = AccountState::Kind::signedIn, .name = u"Ada & Co"_qs};
    account.refresh();
    EXPECT_EQ(signIn->text(), u"Ada && Co");
    application.accountState = {};
    account.refresh();
    EXPECT_EQ(signIn->text(), u"tray.signIn");
}

TEST_F(TrayTest, AHotkeyOfAnotherProgramIsShownWhileItIsOne) {
    application.hotkeyConflict = {u"taken"_qs, u"Use it"_qs};
    Q_EMIT tray.menu().aboutToShow();
    auto* offer = entry(tray.menu(), u"Use it"_qs);
    ASSERT_TRUE(offer && offer->isVisible() && entry(tray.menu(), u"taken"_qs)->isVisible());
    offer->trigger();
    EXPECT_FALSE(application.hotkeyConflict);
    Q_EMIT tray.menu().aboutToShow();
    EXPECT_FALSE(offer->isVisible());
}

TEST(LanguageListTest, FindsByEveryName) {
    FakeApplication application;
    LanguageListModel model(application.hooks.listLanguages());
    EXPECT_EQ(model.codeAt(model.currentRow()), u"de");
    const QString typedAndFirst = u"deut=de|German=de|espanol=es|FRAN=fr|рус=ru|中=zh|zh=zh|  welsh =cy|xyz="_qs;
    for (const auto& row : typedAndFirst.split(u'|')) {
        const auto typed = row.section(u'=', 0, 0);
        model.setFilter(typed);
        EXPECT_EQ(model.codeAt(model.currentRow()), row.section(u'=', 1)) << typed.toStdString();
    }
}

TEST(LanguagePickerTest, WorksFromTheKeyboard) {
    FakeApplication application;
    QmlEngineHost host;
    const auto choose = [&](const std::function<void(QWindow&)>& search) {
        LanguagePickerWindow picker(host, application.hooks);
        picker.present();
        EXPECT_TRUE(waitUntil([&] { return picker.isActive() && picker.activeFocusItem(); }));
        search(picker);
        press(picker, Qt::Key_Return);
        EXPECT_FALSE(picker.isVisible());
        return application.chosenLanguage;
    };
    EXPECT_EQ(choose([](QWindow& picker) { press(picker, Qt::Key_Down); }), u"ru") << "from German to the next";
    EXPECT_EQ(choose([](QWindow& picker) { type(picker, u"fin"_qs); }), u"fi");
}

/// Contrast ratio of the Web Content Accessibility Guidelines 2.1.
double contrast(const QColor& one, const QColor& other) {
    const auto luminance = [](const QColor& color) {
        const auto linear = [](double value) {
            return value <= 0.03928 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
    };
    const auto [dark, light] = std::minmax({luminance(one), luminance(other)});
    return (light + 0.05) / (dark + 0.05);
}

TEST(ThemeTest, IsReadableLightAndDark) {
    QmlEngineHost host;
    QQmlComponent component(&host.engine());
    component.setData("import QtQuick; import Quillo; QtObject { property QtObject theme: Theme }", {});
    const std::unique_ptr<QObject> holder(component.create());
    ASSERT_TRUE(holder) << qPrintable(component.errorString());
    auto* theme = holder->property("theme").value<QObject*>();
    const auto original = QGuiApplication::palette();
    for (const auto& base : {QColor(Qt::white), QColor(Qt::black)}) {
        QGuiApplication::setPalette(QPalette(base, base));
        ASSERT_TRUE(waitUntil([&] { return theme->property("dark").toBool() == (base == QColor(Qt::black)); }));
        const auto surface = theme->property("surface").value<QColor>();
        for (const char* name : {"text", "secondaryText", "recording", "connecting", "offline", "accent", "failure"})
            EXPECT_GE(contrast(theme->property(name).value<QColor>(), surface), 4.5) << name;
    }
    QGuiApplication::setPalette(original);
}

} // namespace
