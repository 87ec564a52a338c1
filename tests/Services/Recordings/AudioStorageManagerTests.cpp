#include "Services/Recordings/AudioStorageManager.h"

#include "Services/Recordings/RecordingsFolder.h"
#include "Services/Settings/UserSettings.h"
#include "Support/Async.h"

namespace quillo::test {
namespace {

const QDateTime now = QDateTime::fromString(QStringLiteral("2026-05-04T10:11:12.013Z"), Qt::ISODateWithMs);

class AudioStorageManagerTest : public testing::Test {
protected:
    void add(const QString& id, int daysOld, bool completed, qsizetype bytes) const {
        auto metadata = RecordingsFolder::metadata(id, now.addDays(-daysOld));
        if (completed)
            metadata.completedAt = now.addDays(daysOld); // the oldest was transcribed last
        m_folder.add(metadata, QByteArray(bytes, '\x01'));
    }
    static QStringList ids() {
        QStringList found;
        for (const auto& metadata : pendingAudioFiles::listRecordings())
            found << metadata.id;
        return found;
    }

    RecordingsFolder m_folder;
    Preferences m_preferences{m_folder.outside(QStringLiteral("settings.ini"))};
    UserSettings m_settings{m_preferences, QStringLiteral("en_US")};
    AudioStorageManager m_manager{m_settings};
};

TEST_F(AudioStorageManagerTest, TheOldestRetainedRecordingGoesFirstAndPendingOnesNever) {
    m_manager.setStorageLimitMB(2);
    EXPECT_EQ(m_settings.audioStorageLimitMB(), 2);
    add(QStringLiteral("pending"), 6, false, 800'000);
    add(QStringLiteral("oldest"), 5, true, 700'000);
    add(QStringLiteral("older"), 4, true, 700'000);
    add(QStringLiteral("newest"), 3, true, 700'000);
    QList<qint64> published;
    QObject::connect(&m_manager, &AudioStorageManager::usageChanged, [&](qint64 bytes) { published << bytes; });
    m_manager.enforceStorageLimit();
    EXPECT_EQ(ids(), QStringList({QStringLiteral("pending"), QStringLiteral("newest")}));
    EXPECT_EQ(published.size(), 1);
    qint64 onDisk = 0;
    for (const auto& file : QDir(m_folder.path()).entryInfoList(QDir::Files))
        onDisk += file.size();
    EXPECT_EQ(m_manager.currentUsageBytes(), onDisk);
    EXPECT_EQ(m_manager.currentUsageBytes(), published.value(0));
    EXPECT_NEAR(m_manager.usageRatio(), 0.75, 0.01);

    // Pending recordings alone may be above the limit.
    m_manager.setStorageLimitMB(1);
    add(QStringLiteral("pending-2"), 1, false, 800'000);
    await(m_manager.enforceStorageLimitAsync());
    EXPECT_EQ(ids(), QStringList({QStringLiteral("pending"), QStringLiteral("pending-2")}));
    EXPECT_GT(m_manager.usageRatio(), 1.5);
}

TEST_F(AudioStorageManagerTest, WhatSomebodyHasInHandStays) {
    add(QStringLiteral("replayed"), 5, true, 700'000);
    add(QStringLiteral("kept"), 4, true, 700'000);
    add(QStringLiteral("pending"), 4, false, 700'000);
    m_manager.setStorageLimitMB(1);
    {
        const RecordingsInUse::Lease lease(QStringLiteral("replayed"), RecordingsInUse::Purpose::queued);
        m_manager.enforceStorageLimit();
        EXPECT_EQ(ids(), QStringList({QStringLiteral("replayed"), QStringLiteral("pending")}));
    }
    m_manager.clearAllAudio();
    EXPECT_EQ(ids(), QStringList(QStringLiteral("pending")));
}

TEST_F(AudioStorageManagerTest, WhereNoAudioIsKeptNoneStaysThatEndedWithoutAText) {
    const std::pair<const char*, bool> recordings[] = {{"unrecognized", false}, {"expired", false}, {"failed", true}};
    for (const auto& [reason, stays] : recordings) {
        const auto id = QString::fromLatin1(reason);
        add(id, 1, false, 100);
        ASSERT_TRUE(pendingAudioFiles::markCompleted(id, now, id));
    }
    m_manager.enforceStorageLimit();
    EXPECT_EQ(ids().size(), 3);
    m_settings.setValue(QStringLiteral("keepAudio"), false);
    m_manager.enforceStorageLimit();
    for (const auto& [reason, stays] : recordings)
        EXPECT_EQ(ids().contains(QString::fromLatin1(reason)), stays) << reason;
}

TEST_F(AudioStorageManagerTest, ItMayGoWhileItsWorkRuns) {
    add(QStringLiteral("retained"), 5, true, 2'000'000);
    auto manager = std::make_unique<AudioStorageManager>(m_settings);
    m_manager.setStorageLimitMB(1);
    auto task = manager->enforceStorageLimitAsync();
    manager.reset();
    await(std::move(task));
    EXPECT_EQ(ids(), QStringList());
}

} // namespace
} // namespace quillo::test
