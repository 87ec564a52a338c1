#include "Core/Preferences.h"

#include "Support/Files.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace quillo::test {
namespace {

class PreferencesFile : public testing::Test {
protected:
    [[nodiscard]] QStringList setAside() const {
        return QDir(folder.path()).entryList({u"quillo.ini.broken-*"_qs}, QDir::Files);
    }

    QTemporaryDir folder;
    QString path = folder.filePath(u"quillo.ini"_qs);
};

TEST_F(PreferencesFile, KeepsEveryKindOfValue) {
    const std::vector<std::pair<QString, QVariant>> values{
        {u"playSound"_qs, false},
        {u"hotkeyKeyCode"_qs, 54},
        {u"doubleTapInterval"_qs, 0.25},
        {u"5f1c-user_selectedMicrophoneId"_qs, u"alsa, \"quoted\" = [x]; # \\ \n@ 你好"_qs},
        {u"user/with\\slashes_key"_qs, u"x"_qs}};
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
    preferences.setValue(u"a"_qs, 1);
    preferences.setValue(u"a"_qs, 1);
    preferences.setValue(u"a"_qs, 2);
    preferences.remove(u"a"_qs);
    preferences.remove(u"a"_qs);
    EXPECT_EQ(told.size(), 3);
}

TEST_F(PreferencesFile, SetsAForeignFileAsideWithItsBytesIntact) {
    const QByteArray foreign[] = {QByteArray("\x7fPE\x02\x01\0\0binary", 13), "{\n  \"playSound\": false\n}\n",
                                  "[General]\nplaySound=\xff\xfe\n", "[General]\nplaySound=false\n<<<<<<< HEAD\n"};
    for (const auto& bytes : foreign) {
        writeFile(path, bytes);
        Preferences preferences(path);
        EXPECT_TRUE(preferences.keys().isEmpty());
        ASSERT_TRUE(preferences.setValue(u"playSound"_qs, true));
        const auto aside = setAside();
        ASSERT_EQ(aside.size(), 1);
        EXPECT_EQ(contentOf(folder.filePath(aside.first())), bytes);
        ASSERT_TRUE(QFile::remove(folder.filePath(aside.first())));
        ASSERT_TRUE(QFile::remove(path));
    }
}

TEST_F(PreferencesFile, ReadsAFileWrittenByHand) {
    writeFile(path, "# my settings\n\n[General]\nprimaryLanguage = de\nsomething=a, b\n; end\n");
    const Preferences preferences(path);
    EXPECT_EQ(preferences.value(u"primaryLanguage"_qs).toString(), u"de"_qs);
    EXPECT_EQ(preferences.value(u"something"_qs).toString(), u"a, b"_qs);
    EXPECT_TRUE(setAside().isEmpty());
}

TEST_F(PreferencesFile, ThatCannotBeWrittenHoldsForTheRun) {
    writeFile(folder.filePath(u"file"_qs), {});
    Preferences preferences(folder.filePath(u"file/quillo.ini"_qs));
    EXPECT_FALSE(preferences.setValue(u"playSound"_qs, false));
    EXPECT_EQ(preferences.value(u"playSound"_qs).toString(), u"false"_qs);
}

} // namespace
} // namespace quillo::test
