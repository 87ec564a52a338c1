#include "PendingQueueFixture.h"
#include "Services/Recordings/AudioStorageManager.h"
#include "Services/Settings/UserSettings.h"

namespace quillo::test {
namespace {

const QString audioId = QStringLiteral("5f7c1c1e-0000-4000-8000-000000000001");
const QString german = QStringLiteral("de");

/// Requests for audio that the history keeps.
class RetranscriptionTest : public PendingQueueFixture {
protected:
    /// A finished recording, older than any that may still wait.
    QUuid addFinished(const QString& audio = audioId) {
        const auto createdAt = clock.wallTime().addDays(-30);
        const auto id = addPending(audio, [&](RecordFields& record) {
            record.createdAt = createdAt;
            record.status = RecordStatus::completed;
            record.text = QStringLiteral("as it was");
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
    post(notification::retranscribeRequest,
         {{QStringLiteral("pendingAudioId"), audioId}, {QStringLiteral("language"), german}});
    ASSERT_EQ(client.calls.size(), 1);
    EXPECT_EQ(client.calls.front().language, german);
    EXPECT_EQ(client.calls.front().purpose, transcriptionPurpose::retranscribe);
    const auto record = stored(id);
    EXPECT_EQ(record.status, RecordStatus::completed);
    EXPECT_EQ(record.text, QStringLiteral("Hello there"));
    EXPECT_EQ(TranscriptionRecord(record).persistedVersions().value(0).text, QStringLiteral("as it was"));
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
    EXPECT_TRUE(manager->retranscribeRecording(audioId, QStringLiteral("fr")));
    EXPECT_TRUE(manager->retranscribeRecording(audioId, german));
    client.onTranscribe = [](const auto& call) { return TranscriptionFileResponse{.text = call.language}; };
    client.holds = false;
    client.release();
    EventExecutor::main().drain();
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
    EXPECT_EQ(stored(id).text, QStringLiteral("as it was")) << "to be read until there is another";
    network.setConnected(true);
    ASSERT_EQ(client.calls.size(), 1);
    EXPECT_EQ(client.calls.front().language, german);
    EXPECT_EQ(stored(id).text, QStringLiteral("Hello there"));
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
        const auto audio = QStringLiteral("audio-%1").arg(++number);
        const auto id = addFinished(audio);
        arrange();
        start();
        EXPECT_TRUE(manager->retranscribeRecording(audio, german));
        clock.advance(time);
        EXPECT_EQ(stored(id).status, RecordStatus::completed) << name;
        EXPECT_EQ(stored(id).text, QStringLiteral("as it was")) << name;
        EXPECT_EQ(stored(id).audioRetainedId, audio) << name;
        EXPECT_EQ(clock.pending(), 0U) << name;
    }
}

TEST_F(RetranscriptionTest, RequestsThatCannotBeServedChangeNothing) {
    addFinished();
    start();
    folder.add(RecordingsFolder::metadata(QStringLiteral("unknown"), clock.wallTime()), QByteArray(320, 'a'));
    AudioFileWriter writer(QStringLiteral("running"));
    writer.startWriting();
    writer.writeChunk(QByteArray(320, 'a'));
    for (const auto* const audio : {"gone", "unknown", "running", "../escape", ""})
        EXPECT_FALSE(manager->retranscribeRecording(QString::fromLatin1(audio), german)) << audio;
    EXPECT_EQ(client.calls.size(), 0);
    EXPECT_EQ(clock.pending(), 0U);
}

TEST_F(RetranscriptionTest, TheStorageLimitLeavesItsAudioAlone) {
    addFinished();
    addFinished(QStringLiteral("other"));
    folder.write(QStringLiteral("other.pcm"), QByteArray(3'000'000, 'a'));
    folder.write(audioId + QStringLiteral(".pcm"), QByteArray(3'000'000, 'a'));
    UserSettings settings(preferences, QStringLiteral("en_US"));
    AudioStorageManager storage(settings);
    storage.setStorageLimitMB(1);
    client.holds = true;
    start();
    EXPECT_TRUE(manager->retranscribeRecording(audioId, german));
    storage.enforceStorageLimit();
    EXPECT_TRUE(pendingAudioFiles::audioFilesExist(audioId));
    EXPECT_FALSE(pendingAudioFiles::audioFilesExist(QStringLiteral("other")));
    client.release();
    EventExecutor::main().drain();
    // Done: it is like any other kept recording again.
    storage.enforceStorageLimit();
    EXPECT_FALSE(pendingAudioFiles::audioFilesExist(audioId));
}

} // namespace
} // namespace quillo::test
