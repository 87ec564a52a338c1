#include "Core/Preferences.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace quillo::test {
namespace {

class PreferencesFile : public testing::Test {
protected:
    void write(const QByteArray& bytes) const {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(bytes);
    }
    [[nodiscard]] QStringList setAside() const {
        return QDir(folder.path()).entryList({QStringLiteral("quillo.ini.broken-*")}, QDir::Files);
    }

    QTemporaryDir folder;
    QString path = folder.filePath(QStringLiteral("quillo.ini"));
};

TEST_F(PreferencesFile, KeepsEveryKindOfValue) {
    const std::vector<std::pair<QString, QVariant>> values{
        {QStringLiteral("playSound"), false},
        {QStringLiteral("hotkeyKeyCode"), 54},
        {QStringLiteral("doubleTapInterval"), 0.25},
        {QStringLiteral("5f1c-user_selectedMicrophoneId"), QStringLiteral("alsa, \"quoted\" = [x]; # \\ \n@ 你好")},
        {QStringLiteral("user/with\\slashes_key"), QStringLiteral("x")}};
    {
        Preferences preferences(path);
        for (const auto& [key, value] : values)
            EXPECT_TRUE(preferences.setValue(key, value));
    }
    const Preferences preferences(path);
    for (const auto& [key, value] : values)
        EXPECT_EQ(preferences.value(key).toString(), value.toString()) << key.toStdString();
    EXPECT_EQ(preferences.keys().size(), 5);
    EXPECT_EQ(QFile::permissions(path) & (QFile::ReadGroup | QFile::ReadOther), 0);
    EXPECT_TRUE(setAside().isEmpty());
}

TEST_F(PreferencesFile, TellsChangesOnly) {
    Preferences preferences(path);
    QStringList told;
    QObject::connect(&preferences, &Preferences::changed, [&](const QString& key) { told << key; });
    preferences.setValue(QStringLiteral("a"), 1);
    preferences.setValue(QStringLiteral("a"), 1);
    preferences.setValue(QStringLiteral("a"), 2);
    preferences.remove(QStringLiteral("a"));
    preferences.remove(QStringLiteral("a"));
    EXPECT_EQ(told.size(), 3);
}

TEST_F(PreferencesFile, SetsAForeignFileAsideWithItsBytesIntact) {
    const QByteArray foreign[] = {QByteArray("\x7f"
                                             "ELF\x02\x01\0\0binary",
                                             14),
                                  "{\n  \"playSound\": false\n}\n", "[General]\nplaySound=\xff\xfe\n",
                                  "[General]\nplaySound=false\n<<<<<<< HEAD\n"};
    for (const auto& bytes : foreign) {
        write(bytes);
        Preferences preferences(path);
        EXPECT_TRUE(preferences.keys().isEmpty());
        ASSERT_TRUE(preferences.setValue(QStringLiteral("playSound"), true));
        const auto aside = setAside();
        ASSERT_EQ(aside.size(), 1);
        QFile kept(folder.filePath(aside.first()));
        ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
        EXPECT_EQ(kept.readAll(), bytes);
        ASSERT_TRUE(kept.remove());
        ASSERT_TRUE(QFile::remove(path));
    }
}

TEST_F(PreferencesFile, ReadsAFileWrittenByHand) {
    write("# my settings\n\n[General]\nprimaryLanguage = de\nsomething=a, b\n; end\n");
    const Preferences preferences(path);
    EXPECT_EQ(preferences.value(QStringLiteral("primaryLanguage")).toString(), QStringLiteral("de"));
    EXPECT_EQ(preferences.value(QStringLiteral("something")).toString(), QStringLiteral("a, b"));
    EXPECT_TRUE(setAside().isEmpty());
}

TEST_F(PreferencesFile, ThatCannotBeWrittenHoldsForTheRun) {
    QFile blocker(folder.filePath(QStringLiteral("file")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    Preferences preferences(folder.filePath(QStringLiteral("file/quillo.ini")));
    EXPECT_FALSE(preferences.setValue(QStringLiteral("playSound"), false));
    EXPECT_EQ(preferences.value(QStringLiteral("playSound")).toString(), QStringLiteral("false"));
}

} // namespace
} // namespace quillo::test
