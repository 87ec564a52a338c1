#include "PendingQueueFixture.h"
#include "Support/LargestFile.h"
#include "Support/LogLines.h"

#include <gmock/gmock.h>

namespace quillo::test {
namespace {

using PendingStoreRefusalTest = PendingQueueFixture;

// Nothing of the store fits any more, while the small metadata files still do.
constexpr rlim_t storeIsFull = 2000;

TEST_F(PendingStoreRefusalTest, ATextThatTheStoreRefusesIsNotLost) {
    const auto id = addPending(audioId);
    network.setConnected(false);
    start();
    {
        const LargestFile full(storeIsFull);
        network.setConnected(true);
        ASSERT_EQ(client.calls.size(), 1);
        EXPECT_EQ(stored(id).text, u"Hello there"_qs) << "in memory";
        EXPECT_TRUE(pendingAudioFiles::readMetadata(audioId).isPending());
        EXPECT_EQ(recovered.size(), 0);
        EXPECT_EQ(clock.pending(), 1U) << "the text waits for its file";
    }
    clock.advance(30s);
    EXPECT_EQ(client.calls.size(), 1);
    EXPECT_EQ(recovered.size(), 1);
    EXPECT_FALSE(pendingAudioFiles::readMetadata(audioId).isPending());
    EXPECT_EQ(clock.pending(), 0U);
    start();
    EXPECT_EQ(stored(id).text, u"Hello there"_qs);
}

TEST_F(PendingStoreRefusalTest, ALiveTextThatTheStoreRefusedIsSavedLater) {
    for (const bool isConnected : {true, false}) {
        start();
        network.setConnected(isConnected);
        const auto record = std::make_shared<TranscriptionRecord>();
        record->text = u"Hello there"_qs;
        {
            const LargestFile full(storeIsFull);
            context().insert(record);
            EXPECT_THROW(context().save(), StoreError);
            post(notification::realTimeRecordingStopped);
            EXPECT_TRUE(context().hasChanges());
        }
        clock.advance(30s);
        EXPECT_EQ(clock.pending(), 0U);
        start();
        EXPECT_EQ(stored(record->id).text, u"Hello there"_qs) << isConnected;
    }
}

TEST_F(PendingStoreRefusalTest, AKillBeforeTheTextIsSavedBringsItBackToTheQueue) {
    const auto id = addPending(audioId);
    network.setConnected(false);
    start();
    {
        const LargestFile full(storeIsFull);
        network.setConnected(true);
        ASSERT_EQ(client.calls.size(), 1);
        manager.reset();
        container.reset();
    }
    start();
    EXPECT_EQ(client.calls.size(), 2);
    EXPECT_EQ(stored(id).text, u"Hello there"_qs);
}

TEST_F(PendingStoreRefusalTest, TheVerdictIsKeptOnDiskWhenTheStoreRefuses) {
    for (const bool isEmpty : {false, true}) {
        const LogLines log; // of this case alone: the limit on the size of files holds for the log too
        const auto audio = isEmpty ? u"empty"_qs : audioId;
        const auto id = addPending(audio, [&](RecordFields& record) {
            record.retryCount = isEmpty ? 0 : 12;
            record.emptyResultCount = 1;
        });
        network.setConnected(false);
        answerWith({});
        start();
        {
            const LargestFile full(storeIsFull);
            network.setConnected(true);
            EXPECT_EQ(log.count("(disk only, DB unavailable): "), isEmpty) << log.text();
            manager.reset();
            container.reset(); // killed before a save succeeded
        }
        client.calls.clear();
        start();
        EXPECT_EQ(client.calls.size(), 0);
        EXPECT_EQ(stored(id).status, isEmpty ? RecordStatus::unrecognized : RecordStatus::transcriptionFailed);
        EXPECT_EQ(stored(id).audioRetainedId, audio);
        EXPECT_TRUE(pendingAudioFiles::audioFilesExist(audio));
        // Until the user asks for it.
        answerWith(u"Hello there"_qs);
        EXPECT_TRUE(manager->retranscribeRecording(audio, {}));
        EXPECT_EQ(stored(id).status, RecordStatus::completed);
    }
}

} // namespace
} // namespace quillo::test
