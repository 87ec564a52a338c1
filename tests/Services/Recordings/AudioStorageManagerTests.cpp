#include "Services/Recordings/AudioStorageManager.h"

#include "Services/Recordings/RecordingsFolder.h"
#include "Services/Settings/UserSettings.h"
#include "Support/Async.h"

namespace quillo::test {
namespace {

const QDateTime now = QDateTime::fromString(u"2026-05-04T10:11:12.013Z"_qs, Qt::ISODateWithMs);

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
    Preferences m_preferences{m_folder.outside(u"settings.ini"_qs)};
    UserSettings m_settings{m_preferences, u"en_US"_qs};
    AudioStorageManager m_manager{m_settings};
};

TEST_F(AudioStorageManagerTest, TheOldestRetainedRecordingGoesFirstAndPendingOnesNever) {
    m_manager.setStorageLimitMB(2);
    EXPECT_EQ(m_settings.audioStorageLimitMB(), 2);
    add(u"pending"_qs, 6, false, 800'000);
    add(u"oldest"_qs, 5, true, 700'000);
    add(u"older"_qs, 4, true, 700'000);
    add(u"newest"_qs, 3, true, 700'000);
    QList<qint64> published;
    QObject::connect(&m_manager, &AudioStorageManager::usageChanged, [&](qint64 bytes) { published << bytes; });
    m_manager.enforceStorageLimit();
    EXPECT_EQ(ids(), QStringList({u"pending"_qs, u"newest"_qs}));
    EXPECT_EQ(published.size(), 1);
    qint64 onDisk = 0;
    for (const auto& file : QDir(m_folder.path()).entryInfoList(QDir::Files))
        onDisk += file.size();
    EXPECT_EQ(m_manager.currentUsageBytes(), onDisk);
    EXPECT_EQ(m_manager.currentUsageBytes(), published.value(0));
    EXPECT_NEAR(m_manager.usageRatio(), 0.75, 0.01);

    // Pending recordings alone may be above the limit.
    m_manager.setStorageLimitMB(1);
    add(u"pending-2"_qs, 1, false, 800'000);
    await(m_manager.enforceStorageLimitAsync());
    EXPECT_EQ(ids(), QStringList({u"pending"_qs, u"pending-2"_qs}));
    EXPECT_GT(m_manager.usageRatio(), 1.5);
}

TEST_F(AudioStorageManagerTest, WhatSomebodyHasInHandStays) {
    add(u"replayed"_qs, 5, true, 700'000);
    add(u"kept"_qs, 4, true, 700'000);
    add(u"pending"_qs, 4, false, 700'000);
    m_manager.setStorageLimitMB(1);
    {
        const RecordingsInUse::Lease lease(u"replayed"_qs, RecordingsInUse::Purpose::queued);
        m_manager.enforceStorageLimit();
        EXPECT_EQ(ids(), QStringList({u"replayed"_qs, u"pending"_qs}));
    }
    m_manager.clearAllAudio();
    EXPECT_EQ(ids(), QStringList(u"pending"_qs));
}

TEST_F(AudioStorageManagerTest, WhereNoAudioIsKeptOnlyFailedStays) {
    const std::pair<const char*, bool> recordings[] = {
        {"unrecognized", false}, {"expired", false}, {"empty_result_zero_words", false}, {"connection_lost", false},
        {"failed", true}};
    for (const auto& [reason, stays] : recordings) {
        const auto id = QString::fromLatin1(reason);
        add(id, 1, false, 100);
        ASSERT_TRUE(pendingAudioFiles::markCompleted(id, now, id));
    }
    m_manager.enforceStorageLimit();
    EXPECT_EQ(ids().size(), 5);
    m_settings.setValue(u"keepAudio"_qs, false);
    m_manager.enforceStorageLimit();
    for (const auto& [reason, stays] : recordings)
        EXPECT_EQ(ids().contains(QString::fromLatin1(reason)), stays) << reason;
}

TEST_F(AudioStorageManagerTest, ItMayGoWhileItsWorkRuns) {
    add(u"retained"_qs, 5, true, 2'000'000);
    auto manager = std::make_unique<AudioStorageManager>(m_settings);
    m_manager.setStorageLimitMB(1);
    auto task = manager->enforceStorageLimitAsync();
    manager.reset();
    await(std::move(task));
    EXPECT_EQ(ids(), QStringList());
}

} // namespace
} // namespace quillo::test
