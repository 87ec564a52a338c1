#include "Core/SupportedLanguages.h"
#include "Localization/LocalizationManager.h"

#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace quillo::test {
namespace {

QSet<QString> placeholders(const QString& text) {
    static const QRegularExpression placeholder(QStringLiteral("%[0-9]"));
    QSet<QString> found;
    for (auto matches = placeholder.globalMatch(text); matches.hasNext();)
        found << matches.next().captured();
    return found;
}

TEST(Catalogues, HoldEveryKeyWithTheSamePlaceholders) {
    const auto& strings = LocalizationStrings::strings();
    ASSERT_GE(strings.size(), 40);
    for (auto entry = strings.begin(); entry != strings.end(); ++entry) {
        const auto english = placeholders(entry->value(QStringLiteral("en")));
        for (const auto& locale : LocalizationStrings::locales()) {
            SCOPED_TRACE(QString(locale + u' ' + entry.key()).toStdString());
            EXPECT_FALSE(entry->value(locale).trimmed().isEmpty());
            EXPECT_EQ(placeholders(entry->value(locale)), english);
        }
    }
}

TEST(Catalogues, AreOfferedOneByOne) {
    QStringList offered;
    for (const auto& info : LocalizationManager::locales())
        offered << info.code;
    EXPECT_EQ(offered, LocalizationStrings::locales());
}

TEST(LocalizationManager, FallsBackToEnglishThenToTheKey) {
    const QHash<QString, LocalizationStrings::Texts> strings{
        {QStringLiteral("both"),
         {{QStringLiteral("en"), QStringLiteral("yes")}, {QStringLiteral("de"), QStringLiteral("ja")}}},
        {QStringLiteral("english"), {{QStringLiteral("en"), QStringLiteral("only")}}}};
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"both", "de", "ja"}, {"both", "fr", "yes"}, {"english", "zh", "only"}, {"unknown", "de", "unknown"}};
    for (const auto& [key, locale, text] : cases)
        EXPECT_EQ(LocalizationManager::textFor(QString::fromLatin1(key), QString::fromLatin1(locale), strings),
                  QString::fromLatin1(text));
}

TEST(LocalizationManager, StartsWithTheStoredElseTheSystemsLanguage) {
    const QTemporaryDir folder;
    Preferences preferences(folder.filePath(QStringLiteral("quillo.ini")));
    const std::pair<QStringList, const char*> systems[] = {{{QStringLiteral("de-AT"), QStringLiteral("en")}, "de"},
                                                           {{QStringLiteral("zh-Hans-CN")}, "zh"},
                                                           {{QStringLiteral("cy"), QStringLiteral("fr")}, "en"},
                                                           {{}, "en"}};
    for (const auto& [languages, locale] : systems)
        EXPECT_EQ(LocalizationManager(preferences, languages).locale(), QString::fromLatin1(locale));

    LocalizationManager manager(preferences, {QStringLiteral("de")});
    int announced = 0;
    QObject::connect(&manager, &LocalizationManager::localeChanged, [&] { ++announced; });
    EXPECT_TRUE(manager.setLocale(QStringLiteral("fr")));
    EXPECT_FALSE(manager.setLocale(QStringLiteral("tlh")));
    EXPECT_EQ(announced, 1);
    EXPECT_EQ(manager.t(QStringLiteral("tray.quit")), QStringLiteral("Quitter Quillo"));
    EXPECT_EQ(LocalizationManager(preferences, {QStringLiteral("de")}).locale(), QStringLiteral("fr"));
    preferences.setValue(LocalizationManager::localeKey, QStringLiteral("tlh"));
    EXPECT_EQ(LocalizationManager(preferences, {QStringLiteral("de")}).locale(), QStringLiteral("de"));
}

TEST(LocalizationManager, FollowsTheStoredChoice) {
    const QTemporaryDir folder;
    Preferences preferences(folder.filePath(QStringLiteral("quillo.ini")));
    LocalizationManager manager(preferences, {QStringLiteral("de")});
    QStringList announced;
    QObject::connect(&manager, &LocalizationManager::localeChanged, [&] { announced << manager.locale(); });
    preferences.setValue(LocalizationManager::localeKey, QStringLiteral("ru"));
    preferences.setValue(QStringLiteral("playSound"), false);
    preferences.setValue(LocalizationManager::localeKey, QStringLiteral("tlh"));
    preferences.setValue(LocalizationManager::localeKey, QStringLiteral("zh"));
    preferences.remove(LocalizationManager::localeKey);
    EXPECT_EQ(announced,
              QStringList({QStringLiteral("ru"), QStringLiteral("de"), QStringLiteral("zh"), QStringLiteral("de")}));
}

TEST(LocalizationManager, NamesEveryDictationLanguage) {
    const QTemporaryDir folder;
    Preferences preferences(folder.filePath(QStringLiteral("quillo.ini")));
    LocalizationManager manager(preferences, {});
    for (const auto& locale : LocalizationStrings::locales()) {
        manager.setLocale(locale);
        for (const auto& language : SupportedLanguages::all())
            EXPECT_FALSE(manager.languageName(language.code).isEmpty())
                << language.code.toStdString() << " in " << locale.toStdString();
    }
    EXPECT_EQ(manager.languageName(QStringLiteral("ru")), QStringLiteral("俄语"));
    manager.setLocale(QStringLiteral("de"));
    EXPECT_EQ(manager.languageName(QStringLiteral("ru")), QStringLiteral("Russisch"));
    EXPECT_EQ(manager.languageName(QStringLiteral("auto")), QString());
}

TEST(LocalizationManager, InsertsArgumentsOnce) {
    const QTemporaryDir folder;
    Preferences preferences(folder.filePath(QStringLiteral("quillo.ini")));
    const LocalizationManager manager(preferences, {});
    EXPECT_EQ(manager.t(QStringLiteral("pill.leftOnClipboard"), {QStringLiteral("%1 Ctrl+V %2")}),
              QStringLiteral("The text is on the clipboard. Press %1 Ctrl+V %2 to paste it."));
}

} // namespace
} // namespace quillo::test
