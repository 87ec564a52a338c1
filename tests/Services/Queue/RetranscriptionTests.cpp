#include "PendingQueueFixture.h"
#include "Services/Recordings/AudioStorageManager.h"
#include "Services/Settings/UserSettings.h"

namespace quillo::test {
namespace {

const QString german = u"de"_qs;

/// Requests for audio that the history keeps.
class RetranscriptionTest : public PendingQueueFixture {
protected:
    /// A finished recording, older than any that may still wait.
    QUuid addFinished() { return addFinished(audioId); }
    QUuid addFinished(const QString& audio) {
        const auto createdAt = clock.wallTime().addDays(-30);
        const auto id = addPending(audio, [&](RecordFields& record) {
            record.createdAt = createdAt;
            record.status = RecordStatus::completed;
            record.text = u"as it was"_qs;
            record.pendingAudioId.reset();
            record.audioRetainedId = audio;
            record.retryCount = 3;
            record.lastRetryAt = createdAt;
            record.emptyResultCount = 1;
        });
        auto metadata = RecordingsFolder::metadata(audio, createdAt);
        metadata.completedAt = createdAt;
        metadata.emptyResultCount = 1;
        pendingAudioFiles::writeMetadata(metadata);
        return id;
    }
};

TEST_F(RetranscriptionTest, AsksForTheOtherLanguageAndKeepsTheOldText) {
    const auto id = addFinished();
    start();
    post(notification::retranscribeRequest, {{u"pendingAudioId"_qs, audioId}, {u"language"_qs, german}});
    ASSERT_EQ(client.calls.size(), 1);
    EXPECT_EQ(client.calls.front().language, german);
    EXPECT_EQ(client.calls.front().purpose, transcriptionPurpose::retranscribe);
    const auto record = stored(id);
    EXPECT_EQ(record.status, RecordStatus::completed);
    EXPECT_EQ(record.text, u"Hello there"_qs);
    EXPECT_EQ(TranscriptionRecord(record).persistedVersions().value(0).text, u"as it was"_qs);
    EXPECT_EQ(record.audioRetainedId, audioId);
    EXPECT_EQ(recovered.size(), 1);
    // The language stays the recording's own.
    EXPECT_TRUE(manager->retranscribeRecording(audioId, {}));
    EXPECT_EQ(client.calls.back().language, german);
}

TEST_F(RetranscriptionTest, AnotherRequestOvertakesTheOneOnItsWay) {
    const auto id = addFinished();
    client.holds = true;
    start();
    EXPECT_TRUE(manager->retranscribeRecording(audioId, u"fr"_qs));
    EXPECT_TRUE(manager->retranscribeRecording(audioId, german));
    client.onTranscribe = [](const auto& call) { return TranscriptionFileResponse{.text = call.language}; };
    client.holds = false;
    release();
    EXPECT_EQ(client.calls.size(), 2);
    EXPECT_EQ(stored(id).text, german);
    EXPECT_EQ(recovered.size(), 1);
    EXPECT_FALSE(manager->isProcessing());
}

TEST_F(RetranscriptionTest, ItOutlivesARestartWithItsLanguageAndCounts) {
    const auto id = addFinished();
    network.setConnected(false);
    start();
    EXPECT_TRUE(manager->retranscribeRecording(audioId, german));
    EXPECT_EQ(stored(id).status, RecordStatus::pendingTranscription);
    EXPECT_EQ(stored(id).retryCount, 0);
    EXPECT_EQ(stored(id).emptyResultCount, 0);
    start();
    EXPECT_EQ(stored(id).text, u"as it was"_qs) << "to be read until there is another";
    network.setConnected(true);
    ASSERT_EQ(client.calls.size(), 1);
    EXPECT_EQ(client.calls.front().language, german);
    EXPECT_EQ(stored(id).text, u"Hello there"_qs);
}

TEST_F(RetranscriptionTest, WhenItComesToNothingTheOldTextStands) {
    struct Case {
        const char* name;
        std::function<void()> arrange;
        std::chrono::seconds time;
    };
    const Case cases[] = {
        {"empty", [this] { answerWith({}); }, 60s},
        {"failures", [this] { failWith(TranscriptionFileClientError::serverError(500, {})); }, 25'440s},
    };
    int number = 0;
    for (const auto& [name, arrange, time] : cases) {
        const auto audio = u"audio-%1"_qs.arg(++number);
        const auto id = addFinished(audio);
        arrange();
        start();
        EXPECT_TRUE(manager->retranscribeRecording(audio, german));
        clock.advance(time);
        EXPECT_EQ(stored(id).status, RecordStatus::completed) << name;
        EXPECT_EQ(stored(id).text, u"as it was"_qs) << name;
        EXPECT_EQ(stored(id).audioRetainedId, audio) << name;
        EXPECT_EQ(clock.pending(), 0U) << name;
    }
}

TEST_F(RetranscriptionTest, RequestsThatCannotBeServedChangeNothing) {
    addFinished();
    start();
    folder.add(RecordingsFolder::metadata(u"unknown"_qs, clock.wallTime()), QByteArray(320, 'a'));
    AudioFileWriter writer(u"running"_qs);
    writer.startWriting();
    writer.writeChunk(QByteArray(320, 'a'));
    for (const auto* const audio : {"gone", "unknown", "running", "../escape", ""})
        EXPECT_FALSE(manager->retranscribeRecording(QString::fromLatin1(audio), german)) << audio;
    EXPECT_EQ(client.calls.size(), 0);
    EXPECT_EQ(clock.pending(), 0U);
}

TEST_F(RetranscriptionTest, TheStorageLimitLeavesItsAudioAlone) {
    addFinished();
    addFinished(u"other"_qs);
    folder.write(u"other.pcm"_qs, QByteArray(3'000'000, 'a'));
    folder.write(audioId + u".pcm"_qs, QByteArray(3'000'000, 'a'));
    UserSettings settings(preferences, u"en_US"_qs);
    AudioStorageManager storage(settings);
    storage.setStorageLimitMB(1);
    client.holds = true;
    start();
    EXPECT_TRUE(manager->retranscribeRecording(audioId, german));
    storage.enforceStorageLimit();
    EXPECT_TRUE(pendingAudioFiles::audioFilesExist(audioId));
    EXPECT_FALSE(pendingAudioFiles::audioFilesExist(u"other"_qs));
    release();
    // Done: it is like any other kept recording again.
    storage.enforceStorageLimit();
    EXPECT_FALSE(pendingAudioFiles::audioFilesExist(audioId));
}

} // namespace
} // namespace quillo::test
