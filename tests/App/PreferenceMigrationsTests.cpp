#include "App/System/PreferenceMigrations.h"
#include "Support/Files.h"

#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace quillo;

namespace {

using Values = std::map<QString, QVariant>;

class PreferenceMigrationsTest : public testing::Test {
protected:
    void writeDomain(const char* domain, const Values& values) {
        QSettings settings(m_folder.filePath(QString::fromLatin1(domain) + u".ini"_qs), QSettings::IniFormat);
        for (const auto& [key, value] : values)
            settings.setValue(key, value);
    }
    void run() {
        PreferenceMigrations migrations(m_preferences, m_folder.path());
        migrations.copyLegacyDefaults();
        migrations.keepFunctionKeyOfExistingUser();
        migrations.dropShiftBackquote();
    }
    QVariant value(const char* key) { return m_preferences.value(QString::fromLatin1(key)); }

    QTemporaryDir m_folder;
    Preferences m_preferences{m_folder.filePath(u"current.ini"_qs)};
};

TEST_F(PreferenceMigrationsTest, TheFirstDomainWithAFinishedOnboardingIsCopiedOnceOverNothing) {
    writeDomain("com.nordvik.quillo-macos", {{u"playSound"_qs, false}}); // never finished
    writeDomain("com.nordvik.quillo-speech", {{u"hasCompletedOnboarding"_qs, true},
                                              {u"hotkeyKeyCode"_qs, 61},
                                              {u"playSound"_qs, false},
                                              {u"insertionMode"_qs, u"type"_qs}});
    writeDomain("com.nordvik.Quillo", {{u"hasCompletedOnboarding"_qs, true}, {u"insertionMode"_qs, u"paste"_qs}});
    m_preferences.setValue(u"playSound"_qs, true);
    run();
    EXPECT_EQ(value("insertionMode").toString(), u"type"_qs);
    EXPECT_EQ(value("hotkeyKeyCode").toInt(), 61) << "a hotkey that was chosen survives the hotkey migrations";
    EXPECT_TRUE(value("onboardingCompleted").toBool());
    EXPECT_TRUE(value("playSound").toBool()) << "what is stored already stays";

    m_preferences.remove(u"insertionMode"_qs);
    run();
    EXPECT_FALSE(value("insertionMode").isValid()) << "copied a second time";
}

TEST_F(PreferenceMigrationsTest, ADomainThatCannotBeReadIsPassedOver) {
    test::writeFile(m_folder.filePath(u"com.nordvik.quillo-macos.ini"_qs),
                    QByteArray("\xff\xfe[\0hasCompletedOnboarding", 25));
    writeDomain("com.nordvik.Quillo", {{u"hasCompletedOnboarding"_qs, true}, {u"insertionMode"_qs, u"type"_qs}});
    run();
    EXPECT_EQ(value("insertionMode").toString(), u"type"_qs);
}

TEST_F(PreferenceMigrationsTest, EveryHotkeyEndsWhereItsUserExpectsIt) {
    struct Case {
        const char* name;
        Values before;
        QVariant keyCode; ///< afterwards; invalid is the default of today
    };
    const Values existing{{u"onboardingCompleted"_qs, true}};
    const std::vector<Case> cases{
        {"a fresh install", {}, {}},
        {"who used fn without choosing it", existing, 63},
        {"a chosen hotkey", {{u"onboardingCompleted"_qs, true}, {u"hotkeyKeyCode"_qs, 60}}, 60},
        {"the old default", {{u"hotkeyKeyCode"_qs, 50}, {u"hotkeyModifiers"_qs, 0x20000}}, {}},
        {"a backquote of one's own", {{u"hotkeyKeyCode"_qs, 50}, {u"hotkeyModifiers"_qs, 0x40000}}, 50},
    };
    for (const auto& example : cases) {
        SCOPED_TRACE(example.name);
        for (const auto& key : m_preferences.keys())
            m_preferences.remove(key);
        for (const auto& [key, value] : example.before)
            m_preferences.setValue(key, value);
        run();
        EXPECT_EQ(value("hotkeyKeyCode").toInt(), example.keyCode.toInt());
        EXPECT_EQ(value("hotkeyKeyCode").isValid(), example.keyCode.isValid());

        // Each runs once: what the user chooses afterwards is not undone at the next start.
        m_preferences.setValue(u"onboardingCompleted"_qs, true);
        m_preferences.setValue(u"hotkeyKeyCode"_qs, 50);
        m_preferences.setValue(u"hotkeyModifiers"_qs, 0x20000);
        run();
        EXPECT_EQ(value("hotkeyKeyCode").toInt(), 50);
    }
}

} // namespace
