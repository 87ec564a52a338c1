#include "App/System/PreferenceMigrations.h"

#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace quillo;

namespace {

using Values = std::map<QString, QVariant>;

class PreferenceMigrationsTest : public testing::Test {
protected:
    void writeDomain(const char* domain, const Values& values) {
        QSettings settings(m_folder.filePath(QString::fromLatin1(domain) + QStringLiteral(".ini")),
                           QSettings::IniFormat);
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
    Preferences m_preferences{m_folder.filePath(QStringLiteral("current.ini"))};
};

TEST_F(PreferenceMigrationsTest, TheFirstDomainWithAFinishedOnboardingIsCopiedOnceOverNothing) {
    writeDomain("com.nordvik.quillo-macos", {{QStringLiteral("playSound"), false}}); // never finished
    writeDomain("com.nordvik.quillo-speech", {{QStringLiteral("hasCompletedOnboarding"), true},
                                              {QStringLiteral("hotkeyKeyCode"), 61},
                                              {QStringLiteral("playSound"), false},
                                              {QStringLiteral("insertionMode"), QStringLiteral("type")}});
    writeDomain("com.nordvik.Quillo", {{QStringLiteral("hasCompletedOnboarding"), true},
                                       {QStringLiteral("insertionMode"), QStringLiteral("paste")}});
    m_preferences.setValue(QStringLiteral("playSound"), true);
    run();
    EXPECT_EQ(value("insertionMode").toString(), QStringLiteral("type"));
    EXPECT_EQ(value("hotkeyKeyCode").toInt(), 61) << "a hotkey that was chosen survives the hotkey migrations";
    EXPECT_TRUE(value("onboardingCompleted").toBool());
    EXPECT_TRUE(value("playSound").toBool()) << "what is stored already stays";

    m_preferences.remove(QStringLiteral("insertionMode"));
    run();
    EXPECT_FALSE(value("insertionMode").isValid()) << "copied a second time";
}

TEST_F(PreferenceMigrationsTest, ADomainThatCannotBeReadIsPassedOver) {
    QFile broken(m_folder.filePath(QStringLiteral("com.nordvik.quillo-macos.ini")));
    ASSERT_TRUE(broken.open(QIODevice::WriteOnly));
    broken.write(QByteArray("\xff\xfe[\0hasCompletedOnboarding", 25));
    broken.close();
    writeDomain("com.nordvik.Quillo", {{QStringLiteral("hasCompletedOnboarding"), true},
                                       {QStringLiteral("insertionMode"), QStringLiteral("type")}});
    run();
    EXPECT_EQ(value("insertionMode").toString(), QStringLiteral("type"));
}

TEST_F(PreferenceMigrationsTest, EveryHotkeyEndsWhereItsUserExpectsIt) {
    struct Case {
        const char* name;
        Values before;
        QVariant keyCode; ///< afterwards; invalid is the default of today
    };
    const Values existing{{QStringLiteral("onboardingCompleted"), true}};
    const std::vector<Case> cases{
        {"a fresh install", {}, {}},
        {"who used fn without choosing it", existing, 63},
        {"a chosen hotkey", {{QStringLiteral("onboardingCompleted"), true}, {QStringLiteral("hotkeyKeyCode"), 60}}, 60},
        {"the old default", {{QStringLiteral("hotkeyKeyCode"), 50}, {QStringLiteral("hotkeyModifiers"), 0x20000}}, {}},
        {"a backquote of one's own",
         {{QStringLiteral("hotkeyKeyCode"), 50}, {QStringLiteral("hotkeyModifiers"), 0x40000}},
         50},
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
        m_preferences.setValue(QStringLiteral("onboardingCompleted"), true);
        m_preferences.setValue(QStringLiteral("hotkeyKeyCode"), 50);
        m_preferences.setValue(QStringLiteral("hotkeyModifiers"), 0x20000);
        run();
        EXPECT_EQ(value("hotkeyKeyCode").toInt(), 50);
    }
}

} // namespace
