#include "PendingQueueFixture.h"
#include "Services/Recordings/KeptReasons.h"

#include <gmock/gmock.h>

namespace quillo::test {
namespace {

/// What the last run left behind, and what the start makes of it. Without a network, so that nothing is sent yet.
class PendingRepairTest : public PendingQueueFixture {
protected:
    PendingRepairTest() { network.setConnected(false); }

    void age(const QString& name, std::chrono::seconds seconds) const {
        QFile file(folder.path(name));
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        ASSERT_TRUE(file.setFileTime(clock.wallTime().addSecs(-seconds.count()), QFileDevice::FileModificationTime));
    }
    QList<RecordPointer> all() const { return context().fetch({}); }

    const QByteArray audio = QByteArray(64'000, '\x01'); // two seconds
};

TEST_F(PendingRepairTest, AKillWhileRecordingLosesNothing) {
    auto metadata = RecordingsFolder::metadata(audioId, clock.wallTime().addSecs(-100));
    metadata.clientRecordingId = u"client-1"_qs;
    metadata.primaryLanguage = u"fr"_qs;
    metadata.reason = u"in_progress"_qs; // early metadata: no counts yet
    folder.add(metadata, audio + "x");   // cut within a sample
    auto meeting = RecordingsFolder::metadata(u"meeting"_qs, clock.wallTime().addSecs(-50));
    meeting.systemAudioId = u"meeting-system"_qs;
    folder.add(meeting, audio);
    folder.write(u"meeting-system.pcm"_qs, audio);
    start();
    const auto records = all();
    ASSERT_EQ(records.size(), 2);
    const RecordFields record = *records.back();
    EXPECT_EQ(record.status, RecordStatus::pendingTranscription);
    EXPECT_EQ(record.pendingAudioId, audioId);
    EXPECT_EQ(record.clientRecordingId, u"client-1"_qs);
    EXPECT_EQ(record.createdAt, metadata.createdAt);
    EXPECT_EQ(record.durationMs, 2000);
    EXPECT_EQ(record.sourceApp, u"Text Editor"_qs);
    EXPECT_EQ(record.userId, u"user-1"_qs);
    EXPECT_FALSE(record.isMeetingMode);
    EXPECT_TRUE(records.front()->isMeetingMode);
    start();
    EXPECT_EQ(all().size(), 2) << "adopted once";
    network.setConnected(true);
    EXPECT_EQ(client.calls.front().language, u"fr"_qs);
    EXPECT_EQ(recovered.size(), 2);
}

TEST_F(PendingRepairTest, AudioWithoutReadableMetadataIsAdoptedHoweverYoung) {
    folder.write(u"bare.pcm"_qs, audio);
    folder.write(u"broken.pcm"_qs, audio);
    folder.write(u"broken.json"_qs, "{\"id\":");
    folder.write(u"empty.pcm"_qs, "x");
    age(u"bare.pcm"_qs, 1s);
    AudioFileWriter writer(u"running"_qs);
    writer.startWriting();
    writer.writeChunk(audio);
    start();
    QStringList adopted;
    for (const auto& record : all()) {
        adopted << *record->pendingAudioId;
        EXPECT_EQ(record->durationMs, 2000);
        EXPECT_EQ(record->userId, u"user-1"_qs);
        EXPECT_EQ(record->clientRecordingId, record->pendingAudioId);
    }
    EXPECT_THAT(adopted, testing::UnorderedElementsAre(u"bare"_qs, u"broken"_qs));
    // Its start follows from its end and its length.
    EXPECT_EQ(pendingAudioFiles::readMetadata(u"bare"_qs).createdAt, clock.wallTime().addSecs(-3));
    network.setConnected(true);
    EXPECT_EQ(recovered.size(), 2);
}

TEST_F(PendingRepairTest, WhatWasRecordedWithoutAUserIsAdoptedWhenThereIsOne) {
    const auto user = std::exchange(auth.user, std::nullopt);
    start();
    clock.advance(60s);
    for (const auto& [id, reason] : {std::pair(u"kept"_qs, u"offline_recording_stopped"_qs),
                                     std::pair(u"running"_qs, pendingAudioFiles::inProgressReason)}) {
        auto metadata = RecordingsFolder::metadata(id, clock.wallTime());
        metadata.userId.clear();
        metadata.reason = reason;
        folder.add(metadata, audio);
    }
    post(notification::pendingRecordingSaved);
    EXPECT_EQ(all().size(), 0);
    auth.user = user;
    for (int change = 0; change < 2; ++change) {
        post(notification::authUserDidChange);
        ASSERT_EQ(all().size(), 1) << change;
        EXPECT_EQ(all().front()->pendingAudioId, u"kept"_qs);
        EXPECT_EQ(all().front()->userId, user->id);
    }
    network.setConnected(true);
    EXPECT_EQ(client.operations(), QStringList(u"transcribe kept"_qs));
}

TEST_F(PendingRepairTest, WhatTheHistoryKnowsDecides) {
    using Change = std::function<void(RecordFields&)>;
    const Change none;
    const auto text = u"the text"_qs;
    struct Case {
        const char* name;
        Change record; ///< the difference from a record without audio and text; empty: no record
        bool hasAudio;
        bool hasMetadata;
        QString status; ///< afterwards, of the only record
        bool isSent;
    };
    const auto with = [&](const QString& status, const QString& words, auto link) {
        return [=](RecordFields& record) {
            record.status = status;
            record.text = words;
            record.pendingAudioId.reset();
            record.clientRecordingId.reset();
            link(record);
        };
    };
    const auto pendingId = [this](RecordFields& record) { record.pendingAudioId = audioId; };
    const auto retainedId = [this](RecordFields& record) { record.audioRetainedId = audioId; };
    const auto clientId = [this](RecordFields& record) { record.clientRecordingId = audioId; };
    const auto nothing = [](RecordFields&) {};
    const auto waiting = RecordStatus::pendingTranscription;
    const Case cases[] = {
        {"no record", none, true, true, waiting, true},
        {"no record, no metadata", none, true, false, waiting, true},
        {"waiting", with(waiting, {}, pendingId), true, true, waiting, true},
        {"waiting, no metadata", with(waiting, {}, pendingId), true, false, waiting, true},
        {"waiting by the client's id", with(waiting, {}, clientId), true, true, waiting, true},
        {"waiting for audio that is gone", with(waiting, {}, pendingId), false, false,
         RecordStatus::transcriptionFailed, false},
        {"waiting with a text, audio gone", with(waiting, text, pendingId), false, true, RecordStatus::completed,
         false},
        {"waiting for nothing", with(waiting, {}, nothing), false, false, RecordStatus::transcriptionFailed, false},
        {"text saved, kept audio not marked", with(RecordStatus::completed, text, retainedId), true, true,
         RecordStatus::completed, false},
        {"text saved, audio not yet deleted", with(RecordStatus::completed, text, clientId), true, true,
         RecordStatus::completed, false},
        {"text saved, no metadata", with(RecordStatus::completed, text, clientId), true, false, RecordStatus::completed,
         false},
        {"completed without a text", with(RecordStatus::completed, {}, clientId), true, true, waiting, true},
        {"unrecognized, audio not marked", with(RecordStatus::unrecognized, {}, retainedId), true, true,
         RecordStatus::unrecognized, false},
        {"given up, audio not marked", with(RecordStatus::transcriptionFailed, {}, retainedId), true, true,
         RecordStatus::transcriptionFailed, false},
        {"still recording when killed", with(RecordStatus::recording, {}, clientId), true, true, waiting, true},
        {"still processing when killed", with(RecordStatus::processing, text, clientId), true, true, waiting, true},
    };
    for (const auto& [name, change, hasAudio, hasMetadata, status, isSent] : cases) {
        SCOPED_TRACE(name);
        client.calls.clear();
        network.setConnected(false);
        if (change)
            addPending(audioId, change);
        QDir(folder.path()).removeRecursively();
        if (hasAudio)
            folder.write(audioId + u".pcm"_qs, audio);
        if (hasMetadata)
            pendingAudioFiles::writeMetadata(RecordingsFolder::metadata(audioId, clock.wallTime().addSecs(-60)));
        start();
        ASSERT_EQ(all().size(), 1);
        EXPECT_EQ(all().front()->status, status);
        if (hasAudio && !isSent) {
            EXPECT_FALSE(pendingAudioFiles::readMetadata(audioId).isPending());
            EXPECT_EQ(all().front()->audioRetainedId, audioId) << "it can be played";
        }
        network.setConnected(true);
        EXPECT_EQ(client.calls.size(), isSent ? 1 : 0);
        context().remove(all().front());
        context().save();
    }
}

TEST_F(PendingRepairTest, RecordingsOfThisRunAreNotLeftOver) {
    // Started late: a recording of this run has ended and waits for its text.
    makeManager();
    clock.advance(10s);
    folder.add(RecordingsFolder::metadata(audioId, clock.wallTime().addSecs(-5)), audio);
    const auto record = TranscriptionRecord::recordingInProgress(u"user-1"_qs, {}, false);
    record->clientRecordingId = audioId;
    context().insert(record);
    context().save();
    manager->start(&context());
    ASSERT_EQ(all().size(), 1);
    EXPECT_EQ(all().front()->status, RecordStatus::recording);
}

TEST_F(PendingRepairTest, OnlyOldFilesOfNothingAreRemoved) {
    folder.add(RecordingsFolder::metadata(audioId, clock.wallTime().addSecs(-60)), audio);
    const QStringList unmatched{u"gone.json"_qs, u"empty.pcm"_qs, u"a.json.new"_qs, u"a_retranscribe.wav"_qs};
    for (const auto& name : unmatched) {
        folder.write(name, "x");
        age(name, 299s);
    }
    start();
    EXPECT_EQ(folder.names().size(), 6);
    for (const auto& name : unmatched)
        age(name, 300s);
    folder.write(u"notes.txt"_qs, "not ours");
    age(u"notes.txt"_qs, 10'000s);
    start();
    EXPECT_EQ(folder.names(), QStringList({audioId + u".json"_qs, audioId + u".pcm"_qs, u"notes.txt"_qs}));
}

TEST_F(PendingRepairTest, WithoutAHistoryEverythingStaysOnDisk) {
    folder.add(RecordingsFolder::metadata(audioId, clock.wallTime().addSecs(-60)), audio);
    network.setConnected(true);
    makeManager();
    manager->start(nullptr);
    post(notification::pendingRecordingSaved);
    post(notification::transcriptionSucceeded);
    EXPECT_FALSE(manager->retranscribeRecording(audioId, {}));
    EXPECT_EQ(client.calls.size(), 0);
    EXPECT_EQ(clock.pending(), 0U);
    EXPECT_TRUE(pendingAudioFiles::readMetadata(audioId).isPending());
    start();
    EXPECT_EQ(recovered.size(), 1);
}

} // namespace
} // namespace quillo::test
