#include "Services/Settings/KeyCodeLabels.h"
#include "Services/Settings/KeyNames.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace quillo::test {
namespace {

/// The interface in a language of the test's choice.
struct Interface {
    explicit Interface(const QString& locale) : texts(preferences, {locale}) {}
    QTemporaryDir folder;
    Preferences preferences{folder.filePath(u"quillo.ini"_qs)};
    LocalizationManager texts;
};

TEST(KeyNames, AreReadInEnglishAndInTheInterfaceLanguage) {
    const Interface german(u"de"_qs);
    const std::pair<const char*, std::optional<KeyCombination>> cases[] = {
        {"Right Ctrl", KeyCombination{62, 0}},
        {" right  CTRL ", KeyCombination{62, 0}},
        {"Strg rechts", KeyCombination{62, 0}},
        {"f9", KeyCombination{101, 0}},
        {"Ctrl+Alt+Space", KeyCombination{49, keyflag::control | keyflag::option}},
        {"strg + umschalt + leertaste", KeyCombination{49, keyflag::control | keyflag::shift}},
        {"Super+Keypad +", KeyCombination{69, keyflag::command}},
        {"Ziffernblock +", KeyCombination{69, 0}},
        {"Meta+Control+c", KeyCombination{8, keyflag::command | keyflag::control}},
        {"Ctrl", {}},
        {"Ctrl+", {}},
        {"Hyper+A", {}},
        {"Barre d’espace", {}},
        {"", {}},
    };
    for (const auto& [text, combination] : cases)
        EXPECT_EQ(keyNames::parse(QString::fromUtf8(text), german.texts), combination) << text;
    EXPECT_EQ(keyNames::parseModifiers(u"alt+STRG"_qs, german.texts), keyflag::option | keyflag::control);
    EXPECT_EQ(keyNames::parseModifiers(u"None"_qs, german.texts), uint64_t{0});
    EXPECT_EQ(keyNames::parseModifiers(u"Ctrl+F9"_qs, german.texts), std::nullopt);
}

TEST(KeyNames, TellEveryKeyFromEveryOtherInEachLanguage) {
    for (const auto& locale : LocalizationStrings::locales()) {
        const Interface shown(locale);
        for (const auto& key : keyLabels()) {
            const KeyCombination combination{key.keyCode, keyflag::mask};
            const auto name = keyNames::of(combination, shown.texts);
            EXPECT_EQ(keyNames::parse(name, shown.texts), combination) << name.toStdString();
        }
    }
    EXPECT_EQ(keyNames::of({200, keyflag::control}, Interface(u"de"_qs).texts), u"Strg+Taste 200"_qs);
}

} // namespace
} // namespace quillo::test
