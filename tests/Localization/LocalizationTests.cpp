#include "Core/SupportedLanguages.h"
#include "Localization/LocalizationManager.h"

#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace quillo::test {
namespace {

class Interface : public testing::Test {
protected:
    QTemporaryDir folder;
    Preferences preferences{folder.filePath(u"quillo.ini"_qs)};
};

QSet<QString> placeholders(const QString& text) {
    static const QRegularExpression placeholder(u"%[0-9]"_qs);
    QSet<QString> found;
    for (auto matches = placeholder.globalMatch(text); matches.hasNext();)
        found << matches.next().captured();
    return found;
}

TEST(Catalogues, HoldEveryKeyWithTheSamePlaceholders) {
    const auto& strings = LocalizationStrings::strings();
    ASSERT_GE(strings.size(), 40);
    for (auto entry = strings.begin(); entry != strings.end(); ++entry) {
        const auto english = placeholders(entry->value(u"en"_qs));
        for (const auto& locale : LocalizationStrings::locales()) {
            SCOPED_TRACE(QString(locale + u' ' + entry.key()).toStdString());
            EXPECT_FALSE(entry->value(locale).trimmed().isEmpty());
            EXPECT_EQ(placeholders(entry->value(locale)), english);
        }
    }
}

TEST_F(Interface, FallsBackToEnglishThenToTheKey) {
    const QHash<QString, LocalizationStrings::Texts> strings{
        {u"both"_qs, {{u"en"_qs, u"yes"_qs}, {u"de"_qs, u"ja"_qs}}}, {u"english"_qs, {{u"en"_qs, u"only"_qs}}}};
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"both", "de", "ja"}, {"both", "fr", "yes"}, {"english", "zh", "only"}, {"unknown", "de", "unknown"}};
    for (const auto& [key, locale, text] : cases)
        EXPECT_EQ(LocalizationManager::textFor(QString::fromLatin1(key), QString::fromLatin1(locale), strings),
                  QString::fromLatin1(text));
}

TEST_F(Interface, StartsWithTheStoredElseTheSystemsLanguage) {
    const std::pair<QStringList, const char*> systems[] = {
        {{u"de-AT"_qs, u"en"_qs}, "de"}, {{u"zh-Hans-CN"_qs}, "zh"}, {{u"cy"_qs, u"fr"_qs}, "en"}, {{}, "en"}};
    for (const auto& [languages, locale] : systems)
        EXPECT_EQ(LocalizationManager(preferences, languages).locale(), QString::fromLatin1(locale));

    LocalizationManager manager(preferences, {u"de"_qs});
    int announced = 0;
    QObject::connect(&manager, &LocalizationManager::localeChanged, [&] { ++announced; });
    EXPECT_TRUE(manager.setLocale(u"fr"_qs));
    EXPECT_FALSE(manager.setLocale(u"tlh"_qs));
    EXPECT_EQ(announced, 1);
    EXPECT_EQ(manager.t(u"tray.quit"_qs), u"Quitter Quillo"_qs);
    EXPECT_EQ(LocalizationManager(preferences, {u"de"_qs}).locale(), u"fr"_qs);
    preferences.setValue(LocalizationManager::localeKey, u"tlh"_qs);
    EXPECT_EQ(LocalizationManager(preferences, {u"de"_qs}).locale(), u"de"_qs);
}

TEST_F(Interface, FollowsTheStoredChoice) {
    LocalizationManager manager(preferences, {u"de"_qs});
    QStringList announced;
    QObject::connect(&manager, &LocalizationManager::localeChanged, [&] { announced << manager.locale(); });
    preferences.setValue(LocalizationManager::localeKey, u"ru"_qs);
    preferences.setValue(u"playSound"_qs, false);
    preferences.setValue(LocalizationManager::localeKey, u"tlh"_qs);
    preferences.setValue(LocalizationManager::localeKey, u"zh"_qs);
    preferences.remove(LocalizationManager::localeKey);
    EXPECT_EQ(announced, QStringList({u"ru"_qs, u"de"_qs, u"zh"_qs, u"de"_qs}));
}

TEST_F(Interface, NamesEveryDictationLanguage) {
    LocalizationManager manager(preferences, {});
    for (const auto& locale : LocalizationStrings::locales()) {
        manager.setLocale(locale);
        for (const auto& language : SupportedLanguages::all())
            EXPECT_FALSE(manager.languageName(language.code).isEmpty())
                << language.code.toStdString() << " in " << locale.toStdString();
    }
    EXPECT_EQ(manager.languageName(u"ru"_qs), u"俄语"_qs);
    manager.setLocale(u"de"_qs);
    EXPECT_EQ(manager.languageName(u"ru"_qs), u"Russisch"_qs);
    EXPECT_EQ(manager.languageName(u"auto"_qs), QString());
}

TEST_F(Interface, InsertsArgumentsOnce) {
    const LocalizationManager manager(preferences, {});
    EXPECT_EQ(manager.t(u"pill.leftOnClipboard"_qs, {u"%1 Ctrl+V %2"_qs}),
              u"The text is on the clipboard. Press %1 Ctrl+V %2 to paste it."_qs);
}

} // namespace
} // namespace quillo::test
