#include "Localization/LocalizationManager.h"
#include "UI/FakeApplication.h"
#include "UI/Foundation/Texts.h"
#include "UI/Language/LanguagePickerWindow.h"
#include "UI/Pill/PillViewModel.h"
#include "UI/RecordingFixture.h"
#include "UI/Tray/TrayController.h"
#include "UI/Welcome/HotkeyTrial.h"

#include <gtest/gtest.h>

namespace quillo::test {
namespace {

/// Every text that an item or one below it shows.
QStringList textsBelow(const QQuickItem& item) {
    QStringList texts;
    if (const auto text = item.property("text").toString(); !text.isEmpty())
        texts << text;
    for (const auto* child : item.childItems())
        texts += textsBelow(*child);
    return texts;
}

struct LanguageChange : testing::Test, RecordingFixture {
    ~LanguageChange() override { speak("en"); }
    static void speak(const char* code) { LocalizationManager::shared().setLocale(QString::fromLatin1(code)); }

    FakeApplication application{&store};
};

TEST_F(LanguageChange, ReachesTheMenu) {
    AccountModel account(application);
    TrayController tray(
        store, application, application.hooks, &Texts::lookUp, account, [] {}, [] {},
        std::make_unique<TrayHost>(*application.windowHints));
    const auto entries = [&tray] {
        QStringList texts;
        for (const auto* action : tray.menu().actions())
            if (!action->isSeparator() && action->isVisible())
                texts << action->text();
        return texts;
    };
    const auto english = entries();
    EXPECT_TRUE(english.contains(u"Quit Quillo"_qs));
    speak("de");
    const auto german = entries();
    for (const auto* text : {"Quillo beenden", "Diktat starten", "Mikrofon", "Diktiersprache", "Anmelden…"})
        EXPECT_TRUE(german.contains(QString::fromUtf8(text))) << text;
    for (const auto& text : german)
        EXPECT_FALSE(english.contains(text)) << text.toStdString();
}

TEST_F(LanguageChange, ReachesThePill) {
    PillViewModel pill(store, clock, &Texts::lookUp, {});
    record();
    EXPECT_EQ(pill.text(), u"Listening"_qs);
    speak("de");
    EXPECT_EQ(pill.text(), u"Ich höre zu"_qs);
    send({action::TranscriptionError{u"broken"_qs}});
    speak("ru");
    EXPECT_TRUE(pill.text().startsWith(u"Сейчас"_qs)) << pill.text().toStdString();
}

TEST_F(LanguageChange, ReachesAnOpenWindow) {
    QmlEngineHost host;
    LanguagePickerWindow picker(host, application.hooks);
    picker.present();
    const auto shows = [&picker](const char* text) {
        return textsBelow(*picker.contentItem()).contains(QString::fromUtf8(text));
    };
    EXPECT_TRUE(shows("Which language do you dictate in?") && shows("Russian"));
    speak("de");
    EXPECT_EQ(picker.title(), u"In welcher Sprache diktieren Sie?"_qs);
    EXPECT_TRUE(shows("In welcher Sprache diktieren Sie?") && shows("Russisch"))
        << textsBelow(*picker.contentItem()).join(u'\n').toStdString();
}

TEST_F(LanguageChange, ReachesTheLanguagesAndTheKey) {
    LanguageListModel languages(application.hooks.listLanguages());
    speak("de");
    languages.setFilter(u"russisch"_qs);
    EXPECT_EQ(languages.codeAt(languages.currentRow()), u"ru");

    application.hooks.hotkeyName = [] { return Texts::lookUp(u"key.rightSuper"_qs); };
    application.hooks.observeHotkey = [](const std::function<void(bool)>&) {};
    const HotkeyTrial trial(application.hooks, clock);
    EXPECT_EQ(trial.name(), u"Super rechts"_qs);
    speak("fr");
    EXPECT_EQ(trial.name(), u"Super droite"_qs);
}

} // namespace
} // namespace quillo::test
