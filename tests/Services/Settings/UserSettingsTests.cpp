#include "Services/Settings/UserSettings.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace quillo::test {
namespace {

const QString anna = QStringLiteral("anna");

class Settings : public testing::Test {
protected:
    void store(const char* key, const QVariant& value) { preferences.setValue(QString::fromLatin1(key), value); }
    [[nodiscard]] QString stored(const char* key) const {
        return preferences.value(QString::fromLatin1(key)).toString();
    }
    void set(const char* key, const QVariant& value) { settings.setValue(QString::fromLatin1(key), value); }

    QTemporaryDir folder;
    Preferences preferences{folder.filePath(QStringLiteral("quillo.ini"))};
    UserSettings settings{preferences, QStringLiteral("de_DE")};
};

TEST_F(Settings, HaveTheirDefaults) {
    EXPECT_EQ(settings.primaryLanguage(), QStringLiteral("de"));
    EXPECT_EQ(settings.secondaryLanguage(), QStringLiteral("none"));
    EXPECT_EQ(settings.insertionMode(), InjectionMode::paste);
    EXPECT_EQ(settings.meetingModePreference(), MeetingModePreference::manual);
    EXPECT_EQ(settings.audioStorageLimitMB(), 4096);
    EXPECT_TRUE(settings.playSound() && settings.showFloatingPill() && settings.restoreClipboard());
    EXPECT_FALSE(settings.cancelRecordingOnEscape() || settings.useDemoMode() || settings.onboardingCompleted() ||
                 settings.enhancedTranscriptionEnabled() || settings.hasChosenLanguage());
    EXPECT_FALSE(settings.selectedMicrophoneId() || settings.pillPositionX() || settings.enhancedConsentTimestamp());
    EXPECT_EQ(settings.value(QStringLiteral("hotkeyKeyCode")), 54);
    EXPECT_EQ(settings.value(QStringLiteral("toggleHotkeyModifiers")), 0x80000);
    EXPECT_EQ(settings.value(QStringLiteral("doubleTapInterval")), 0.3);
    EXPECT_TRUE(preferences.keys().isEmpty()) << "reading stores nothing";
}

TEST_F(Settings, BelongToTheSignedInUser) {
    set("playSound", false);
    set("hotkeyKeyCode", 101);
    settings.setUserId(anna);
    EXPECT_TRUE(settings.playSound());
    EXPECT_EQ(settings.value(QStringLiteral("hotkeyKeyCode")), 101) << "the machine's";
    set("playSound", false);
    set("restoreClipboard", false);
    EXPECT_EQ(stored("anna_playSound"), QStringLiteral("false"));
    settings.setUserId(QStringLiteral("bert"));
    EXPECT_TRUE(settings.playSound() && settings.restoreClipboard());
    settings.setUserId(std::nullopt);
    EXPECT_FALSE(settings.playSound());
    EXPECT_TRUE(settings.restoreClipboard());
}

TEST_F(Settings, ThatAreNoValueReadAsTheDefault) {
    const std::pair<const char*, QVariant> nonsense[] = {{"hotkeyKeyCode", 65536},
                                                         {"hotkeyKeyCode", -1},
                                                         {"hotkeyKeyCode", QStringLiteral("space")},
                                                         {"hotkeyModifiers", -1},
                                                         {"doubleTapInterval", -0.1},
                                                         {"playSound", QStringLiteral("maybe")},
                                                         {"insertionMode", QStringLiteral("telepathy")},
                                                         {"meetingDetectionHistory", QStringLiteral("[1]")},
                                                         {"audioStorageLimitMB", 0},
                                                         {"secondaryLanguage", QStringLiteral("xx")}};
    for (const auto& [key, value] : nonsense) {
        store(key, value);
        const auto& setting = settingForKey(QString::fromLatin1(key));
        EXPECT_EQ(settings.value(setting.key), setting.defaultValue) << key;
    }
    store("primaryLanguage", QStringLiteral("klingon"));
    EXPECT_EQ(settings.primaryLanguage(), QStringLiteral("de"));
}

TEST_F(Settings, TellTheChangesThatCount) {
    QStringList told;
    QObject::connect(&settings, &UserSettings::changed, [&](const QString& key) { told << key; });
    set("playSound", false);
    settings.setUserId(anna);
    set("hotkeyKeyCode", 101);
    set("insertionMode", QStringLiteral("type"));
    store("playSound", true); // not effective while Anna is signed in
    EXPECT_EQ(told, QStringList({QStringLiteral("playSound"), QStringLiteral("hotkeyKeyCode"),
                                 QStringLiteral("insertionMode")}));
}

TEST_F(Settings, GateTheFirstRecordingUntilALanguageIsChosen) {
    settings.runMigrations();
    EXPECT_EQ(stored("primaryLanguage"), QStringLiteral("de"));
    EXPECT_EQ(stored("secondaryLanguage"), QStringLiteral("none"));
    EXPECT_FALSE(settings.hasChosenLanguage());
    EXPECT_THROW(settings.chooseLanguages(QStringLiteral("xx")), SettingsError);
    EXPECT_FALSE(settings.hasChosenLanguage());
    settings.chooseLanguages(QStringLiteral("de"), QStringLiteral("en"));
    EXPECT_TRUE(settings.hasChosenLanguage());
    EXPECT_EQ(settings.dictationLanguages(), QStringList({QStringLiteral("de"), QStringLiteral("en")}));
    settings.chooseLanguages(QStringLiteral("auto"), QStringLiteral("en"));
    EXPECT_EQ(settings.dictationLanguages(), QStringList());
}

TEST_F(Settings, OfAnExistingInstallKeepTheirLanguages) {
    store("onboardingCompleted", true);
    store("primaryLanguage", QStringLiteral("fr"));
    settings.runMigrations();
    EXPECT_TRUE(settings.hasChosenLanguage());
    EXPECT_EQ(settings.primaryLanguage(), QStringLiteral("fr"));
}

TEST_F(Settings, AreInheritedByTheFirstAccountOnly) {
    store("playSound", false);
    store("meetingModeEnabled", true);
    store("anna_restoreClipboard", false);
    store("restoreClipboard", true);
    settings.setUserId(anna);
    settings.runMigrations();
    EXPECT_FALSE(settings.playSound());
    EXPECT_FALSE(settings.restoreClipboard()) << "what the account has is not overwritten";
    EXPECT_EQ(settings.meetingModePreference(), MeetingModePreference::automatic);
    set("playSound", true);
    settings.runMigrations();
    EXPECT_TRUE(settings.playSound()) << "once";
    settings.setUserId(QStringLiteral("bert"));
    settings.runMigrations();
    EXPECT_TRUE(settings.playSound());
}

TEST_F(Settings, MigrateTheLegacyMeetingSwitch) {
    store("meetingModeEnabled", false);
    settings.migrateMeetingModeFromLegacy();
    EXPECT_EQ(stored("meetingModePreference"), QStringLiteral("off"));
    store("meetingModeEnabled", true);
    settings.migrateMeetingModeFromLegacy();
    EXPECT_EQ(stored("meetingModePreference"), QStringLiteral("off"));
}

TEST_F(Settings, KeepConsentsByVersion) {
    store("enhancedTranscriptionEnabled", true);
    settings.migrateEnhancedConsentIfNeeded();
    EXPECT_TRUE(settings.hasValidEnhancedConsent());
    EXPECT_TRUE(QDateTime::fromString(*settings.enhancedConsentTimestamp(), Qt::ISODateWithMs).isValid());
    store("enhancedConsentVersion", QStringLiteral("0"));
    settings.migrateEnhancedConsentIfNeeded();
    EXPECT_FALSE(settings.hasValidEnhancedConsent()) << "an outdated consent is not renewed by itself";
    settings.setUserId(QStringLiteral("u2"));
    settings.runMigrations();
    settings.setValue(QStringLiteral("playSound"), true);
    EXPECT_FALSE(settings.hasValidEnhancedConsent());
    settings.setValue(QStringLiteral("enhancedTranscriptionEnabled"), true);
    EXPECT_TRUE(settings.hasValidEnhancedConsent()) << "who switches it on gives it";
    const auto given = settings.enhancedConsentTimestamp();
    settings.runMigrations();
    EXPECT_EQ(settings.enhancedConsentTimestamp(), given);
    // A consent that was taken away is not made up at the next start.
    settings.setValue(QStringLiteral("enhancedConsentVersion"), {});
    settings.runMigrations();
    EXPECT_FALSE(settings.hasValidEnhancedConsent());
    EXPECT_FALSE(settings.hasValidSyncConsent());
    settings.recordSyncConsent();
    EXPECT_TRUE(settings.hasValidSyncConsent());
}

TEST_F(Settings, RememberMeetingAnswers) {
    settings.rememberMeetingDecision(QStringLiteral("us.zoom.xos"), true);
    settings.rememberMeetingDecision(QStringLiteral("org.jitsi = \"x\""), false);
    settings.rememberMeetingDecision(std::nullopt, true);
    const QVariantMap expected{{QStringLiteral("us.zoom.xos"), true}, {QStringLiteral("org.jitsi = \"x\""), false}};
    EXPECT_EQ(settings.value(QStringLiteral("meetingDetectionHistory")).toMap(), expected);
}

TEST(SettingsSchema, ParsesWhatAPersonTypes) {
    struct Case {
        const char* key;
        const char* text;
        QVariant value; ///< invalid: refused
    };
    const Case cases[] = {{"playSound", "Off", false},
                          {"playSound", "1", true},
                          {"playSound", "ja", {}},
                          {"playSound", "", {}},
                          {"hotkeyKeyCode", "101", 101},
                          {"hotkeyKeyCode", "65536", {}},
                          {"toggleHotkeyModifiers", "0xC0000", 0xC0000},
                          {"toggleHotkeyModifiers", "0x", {}},
                          {"doubleTapInterval", "0.25", 0.25},
                          {"doubleTapInterval", "nan", {}},
                          {"doubleTapInterval", "6", {}},
                          {"insertionMode", "type", QStringLiteral("type")},
                          {"insertionMode", "Type", {}},
                          {"primaryLanguage", "auto", QStringLiteral("auto")},
                          {"primaryLanguage", "none", {}},
                          {"audioStorageLimitMB", "1e3", {}}};
    for (const auto& [key, text, value] : cases) {
        const auto& setting = settingForKey(QString::fromLatin1(key));
        SCOPED_TRACE(std::string(key) + " " + text);
        if (value.isValid()) {
            EXPECT_EQ(parseSettingValue(setting, QString::fromLatin1(text)), value);
            continue;
        }
        try {
            parseSettingValue(setting, QString::fromLatin1(text));
            ADD_FAILURE() << "accepted";
        } catch (const SettingsError& error) {
            EXPECT_TRUE(error.message().contains(setting.key)) << error.what();
            EXPECT_TRUE(error.message().contains(QStringLiteral("expected"))) << error.what();
        }
    }
}

TEST(SettingsSchema, PrintsWhatItParses) {
    for (const auto& setting : settingsSchema()) {
        SCOPED_TRACE(setting.key.toStdString());
        EXPECT_FALSE(setting.description.isEmpty());
        const QString printed = printSettingValue(setting, setting.defaultValue);
        EXPECT_EQ(parseSettingInput(setting, printed),
                  (std::vector<std::pair<QString, QVariant>>{{setting.key, setting.defaultValue}}));
    }
}

TEST(SettingsSchema, TakesKeysByNameAndByNumber) {
    using Values = std::vector<std::pair<QString, QVariant>>;
    const auto key = QStringLiteral("toggleHotkeyKeyCode");
    const auto modifiers = QStringLiteral("toggleHotkeyModifiers");
    const std::tuple<QString, const char*, Values> cases[] = {
        {key, "101", {{key, 101}}}, // a number leaves the modifiers alone
        {key, "0x65", {{key, 101}}},
        {key, "F9", {{modifiers, 0}, {key, 101}}},
        {key, "ctrl+alt+space", {{modifiers, 0xC0000}, {key, 49}}},
        {modifiers, "Ctrl+Alt", {{modifiers, 0xC0000}}},
        {modifiers, "none", {{modifiers, 0}}},
        {modifiers, "0x80000", {{modifiers, 0x80000}}},
    };
    for (const auto& [setting, text, values] : cases)
        EXPECT_EQ(parseSettingInput(settingForKey(setting), QString::fromLatin1(text)), values) << text;
    EXPECT_EQ(printSettingValue(settingForKey(key), 101), QStringLiteral("101 (F9)"));
    EXPECT_EQ(printSettingValue(settingForKey(modifiers), 0xC0000), QStringLiteral("786432 (Ctrl+Alt)"));
    EXPECT_EQ(settingForStorage(settingForKey(key), 101), QStringLiteral("101"));
    EXPECT_EQ(settingForStorage(settingForKey(modifiers), 0xC0000), QStringLiteral("786432"));
    for (const auto& setting : {key, modifiers})
        EXPECT_THROW(parseSettingInput(settingForKey(setting), QStringLiteral("Any Key")), SettingsError);
}

TEST(SettingsSchema, SuggestsSimilarKeys) {
    try {
        settingForKey(QStringLiteral("hotkey"));
        ADD_FAILURE();
    } catch (const SettingsError& error) {
        EXPECT_TRUE(error.message().contains(QStringLiteral("hotkeyKeyCode"))) << error.what();
    }
    EXPECT_THROW(settingForKey(QString()), SettingsError);
}

} // namespace
} // namespace quillo::test
