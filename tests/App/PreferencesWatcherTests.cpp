#include "App/System/PreferencesWatcher.h"
#include "Support/Async.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace quillo;
using namespace quillo::test;

namespace {

TEST(PreferencesWatcherTest, AnEditInAnotherProgramHoldsAtOnce) {
    const QTemporaryDir folder;
    Preferences preferences(folder.filePath(u"quillo.ini"_qs));
    preferences.setValue(u"kept"_qs, 1);
    const PreferencesWatcher watcher(preferences);
    QStringList changed;
    QObject::connect(&preferences, &Preferences::changed, [&](const QString& key) { changed << key; });
    struct Edit {
        bool replaces; ///< as most editors do, rather than writing into the file
        QByteArray text;
        QString key;
        QString value;
    };
    const Edit edits[] = {
        {false, "[General]\nkept=1\nprimaryLanguage=de\n", u"primaryLanguage"_qs, u"de"_qs},
        {true, "[General]\nkept=1\n\nprimaryLanguage=fr\n", u"primaryLanguage"_qs, u"fr"_qs},
        {true, "[General]\nkept=1\n", u"primaryLanguage"_qs, {}},
        {false, "[General]\nkept=1\nplaySound=false\n", u"playSound"_qs, u"false"_qs},
    };
    for (const auto& edit : edits) {
        changed.clear();
        QFile file(preferences.path() + (edit.replaces ? u".new"_qs : QString()));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(edit.text);
        file.close();
        if (edit.replaces)
            ASSERT_EQ(::rename(QFile::encodeName(file.fileName()), QFile::encodeName(preferences.path())), 0);
        EXPECT_TRUE(waitUntil([&] { return changed.contains(edit.key); })) << edit.text.data();
        EXPECT_EQ(preferences.value(edit.key).toString(), edit.value);
        EXPECT_EQ(preferences.value(u"kept"_qs).toInt(), 1);
    }
}

} // namespace
