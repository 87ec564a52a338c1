#include "Services/Settings/UserSettings.h"

#include <QTemporaryDir>

#include <gmock/gmock.h>

namespace quillo::test {
namespace {

const QString anna = u"anna"_qs;

class Settings : public testing::Test {
protected:
    void store(const char* key, const QVariant& value) { preferences.setValue(QString::fromLatin1(key), value); }
    [[nodiscard]] QString stored(const char* key) const {
        return preferences.value(QString::fromLatin1(key)).toString();
    }
    void set(const char* key, const QVariant& value) { settings.setValue(QString::fromLatin1(key), value); }

    QTemporaryDir folder;
    Preferences preferences{folder.filePath(u"quillo.ini"_qs)};
    UserSettings settings{preferences, u"de_DE"_qs};
};

TEST_F(Settings, HaveTheirDefaults) {
    EXPECT_EQ(settings.primaryLanguage(), u"de"_qs);
    EXPECT_EQ(settings.secondaryLanguage(), u"none"_qs);
    EXPECT_FALSE(settings.enhancedTranscriptionEnabled() || settings.hasChosenLanguage());
    EXPECT_FALSE(settings.selectedMicrophoneId() || settings.enhancedConsentTimestamp());
    EXPECT_EQ(settings.value(u"hotkeyKeyCode"_qs), 54);
    EXPECT_EQ(settings.value(u"toggleHotkeyModifiers"_qs), 0x80000);
    EXPECT_EQ(settings.value(u"doubleTapInterval"_qs), 0.3);
    EXPECT_TRUE(preferences.keys().isEmpty()) << "reading stores nothing";
}

TEST_F(Settings, BelongToTheSignedInUser) {
    set("playSound", false);
    set("hotkeyKeyCode", 101);
    settings.setUserId(anna);
    EXPECT_TRUE(settings.playSound());
    EXPECT_EQ(settings.value(u"hotkeyKeyCode"_qs), 101) << "the machine's";
    set("playSound", false);
    set("restoreClipboard", false);
    EXPECT_EQ(stored("anna_playSound"), u"false"_qs);
    settings.setUserId(u"bert"_qs);
    EXPECT_TRUE(settings.playSound() && settings.restoreClipboard());
    settings.setUserId(std::nullopt);
    EXPECT_FALSE(settings.playSound());
    EXPECT_TRUE(settings.restoreClipboard());
}

TEST_F(Settings, ThatAreNoValueReadAsTheDefault) {
    const std::pair<const char*, QVariant> nonsense[] = {
        {"hotkeyKeyCode", 65536},           {"hotkeyKeyCode", -1},
        {"hotkeyKeyCode", u"space"_qs},     {"hotkeyModifiers", -1},
        {"doubleTapInterval", -0.1},        {"playSound", u"maybe"_qs},
        {"insertionMode", u"telepathy"_qs}, {"meetingDetectionHistory", u"[1]"_qs},
        {"audioStorageLimitMB", 0},         {"secondaryLanguage", u"xx"_qs}};
    for (const auto& [key, value] : nonsense) {
        store(key, value);
        const auto& setting = settingForKey(QString::fromLatin1(key));
        EXPECT_EQ(settings.value(setting.key), setting.defaultValue) << key;
    }
    store("primaryLanguage", u"klingon"_qs);
    EXPECT_EQ(settings.primaryLanguage(), u"de"_qs);
}

TEST_F(Settings, TellTheChangesThatCount) {
    QStringList told;
    QObject::connect(&settings, &UserSettings::changed, [&](const QString& key) { told << key; });
    set("playSound", false);
    settings.setUserId(anna);
    set("hotkeyKeyCode", 101);
    set("insertionMode", u"type"_qs);
    store("playSound", true); // not effective while Anna is signed in
    EXPECT_EQ(told, QStringList({u"playSound"_qs, u"hotkeyKeyCode"_qs, u"insertionMode"_qs}));
}

TEST_F(Settings, GateTheFirstRecordingUntilALanguageIsChosen) {
    settings.runMigrations();
    EXPECT_EQ(stored("primaryLanguage"), u"de"_qs);
    EXPECT_EQ(stored("secondaryLanguage"), u"none"_qs);
    EXPECT_FALSE(settings.hasChosenLanguage());
    EXPECT_THROW(settings.chooseLanguages(u"xx"_qs), SettingsError);
    EXPECT_FALSE(settings.hasChosenLanguage());
    settings.chooseLanguages(u"de"_qs, u"en"_qs);
    EXPECT_TRUE(settings.hasChosenLanguage());
    EXPECT_EQ(settings.dictationLanguages(), QStringList({u"de"_qs, u"en"_qs}));
    settings.chooseLanguages(u"auto"_qs, u"en"_qs);
    EXPECT_EQ(settings.dictationLanguages(), QStringList());
}

TEST_F(Settings, OfAnExistingInstallKeepTheirLanguages) {
    store("onboardingCompleted", true);
    store("primaryLanguage", u"fr"_qs);
    settings.runMigrations();
    EXPECT_TRUE(settings.hasChosenLanguage());
    EXPECT_EQ(settings.primaryLanguage(), u"fr"_qs);
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
    settings.setUserId(u"bert"_qs);
    settings.runMigrations();
    EXPECT_TRUE(settings.playSound());
}

TEST_F(Settings, MigrateTheLegacyMeetingSwitchOnce) {
    for (const bool isOn : {false, true}) {
        store("meetingModeEnabled", isOn);
        settings.migrateMeetingModeFromLegacy();
        EXPECT_EQ(stored("meetingModePreference"), u"off"_qs);
    }
}

TEST_F(Settings, KeepConsentsByVersion) {
    store("enhancedTranscriptionEnabled", true);
    settings.migrateEnhancedConsentIfNeeded();
    EXPECT_TRUE(settings.hasValidEnhancedConsent());
    EXPECT_TRUE(QDateTime::fromString(*settings.enhancedConsentTimestamp(), Qt::ISODateWithMs).isValid());
    store("enhancedConsentVersion", u"0"_qs);
    settings.migrateEnhancedConsentIfNeeded();
    EXPECT_FALSE(settings.hasValidEnhancedConsent()) << "an outdated consent is not renewed by itself";
    settings.setUserId(u"u2"_qs);
    settings.runMigrations();
    settings.setValue(u"playSound"_qs, true);
    EXPECT_FALSE(settings.hasValidEnhancedConsent());
    settings.setValue(u"enhancedTranscriptionEnabled"_qs, true);
    EXPECT_TRUE(settings.hasValidEnhancedConsent()) << "who switches it on gives it";
    const auto given = settings.enhancedConsentTimestamp();
    settings.runMigrations();
    EXPECT_EQ(settings.enhancedConsentTimestamp(), given);
    // A consent that was taken away is not made up at the next start.
    settings.setValue(u"enhancedConsentVersion"_qs, {});
    settings.runMigrations();
    EXPECT_FALSE(settings.hasValidEnhancedConsent());
    EXPECT_FALSE(settings.hasValidSyncConsent());
    settings.recordSyncConsent();
    EXPECT_TRUE(settings.hasValidSyncConsent());
}

TEST_F(Settings, RememberMeetingAnswers) {
    settings.rememberMeetingDecision(u"us.zoom.xos"_qs, true);
    settings.rememberMeetingDecision(u"org.jitsi = \"x\""_qs, false);
    settings.rememberMeetingDecision(std::nullopt, true);
    const QVariantMap expected{{u"us.zoom.xos"_qs, true}, {u"org.jitsi = \"x\""_qs, false}};
    EXPECT_EQ(settings.value(u"meetingDetectionHistory"_qs).toMap(), expected);
}

TEST(SettingsSchema, ParsesWhatAPersonTypes) {
    const QVariant refused; // an invalid value
    const struct {
        const char* key;
        std::vector<std::pair<const char*, QVariant>> values;
    } settings[] = {
        {"playSound", {{"Off", false}, {"1", true}, {"ja", refused}, {"", refused}}},
        {"hotkeyKeyCode", {{"101", 101}, {"65536", refused}}},
        {"toggleHotkeyModifiers", {{"0xC0000", 0xC0000}, {"0x", refused}}},
        {"doubleTapInterval", {{"0.25", 0.25}, {"nan", refused}, {"6", refused}}},
        {"insertionMode", {{"type", u"type"_qs}, {"Type", refused}}},
        {"primaryLanguage", {{"auto", u"auto"_qs}, {"none", refused}}},
        {"audioStorageLimitMB", {{"1e3", refused}}},
    };
    for (const auto& [key, values] : settings)
        for (const auto& [text, value] : values) {
            const auto& setting = settingForKey(QString::fromLatin1(key));
            SCOPED_TRACE(std::string(key) + " " + text);
            try {
                EXPECT_EQ(parseSettingValue(setting, QString::fromLatin1(text)), value);
                EXPECT_TRUE(value.isValid()) << "accepted";
            } catch (const SettingsError& error) {
                EXPECT_FALSE(value.isValid());
                EXPECT_TRUE(error.message().contains(setting.key)) << error.what();
                EXPECT_TRUE(error.message().contains(u"expected"_qs)) << error.what();
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
    const auto key = u"toggleHotkeyKeyCode"_qs;
    const auto modifiers = u"toggleHotkeyModifiers"_qs;
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
    EXPECT_EQ(printSettingValue(settingForKey(key), 101), u"101 (F9)"_qs);
    EXPECT_EQ(printSettingValue(settingForKey(modifiers), 0xC0000), u"786432 (Ctrl+Alt)"_qs);
    EXPECT_EQ(settingForStorage(settingForKey(key), 101), u"101"_qs);
    EXPECT_EQ(settingForStorage(settingForKey(modifiers), 0xC0000), u"786432"_qs);
    for (const auto& setting : {key, modifiers})
        EXPECT_THROW(parseSettingInput(settingForKey(setting), u"Any Key"_qs), SettingsError);
}

TEST(SettingsSchema, SuggestsSimilarKeys) {
    EXPECT_THAT([] { settingForKey(u"hotkey"_qs); },
                testing::ThrowsMessage<SettingsError>(testing::HasSubstr("hotkeyKeyCode")));
    EXPECT_THROW(settingForKey(QString()), SettingsError);
}

} // namespace
} // namespace quillo::test
