#include "PendingQueueFixture.h"
#include "Support/LogLines.h"

#include <gmock/gmock.h>

namespace quillo::test {
namespace {

const auto broken = TranscriptionFileClientError::serverError(500, {});

using PendingTranscriptionManagerTest = PendingQueueFixture;

TEST_F(PendingTranscriptionManagerTest, ASuccessWritesTheRecordThenMarksTheAudio) {
    const auto id = addPending(audioId);
    client.onTranscribe = [](const auto&) {
        return TranscriptionFileResponse{
            .text = u" Hello there "_qs, .languageDetected = u"de"_qs, .transcriptionId = u"session"_qs};
    };
    start();
    ASSERT_EQ(client.calls.size(), 1);
    const auto& call = client.calls.front();
    EXPECT_EQ(call.id, audioId);
    EXPECT_EQ(call.language, u"en"_qs);
    EXPECT_EQ(call.purpose, transcriptionPurpose::pending);
    EXPECT_EQ(call.clientRecordingId, audioId);
    const auto record = stored(id);
    EXPECT_EQ(record.status, RecordStatus::completed);
    EXPECT_EQ(record.text, u"Hello there"_qs);
    EXPECT_EQ(record.wordCount, 2);
    EXPECT_EQ(record.languageDetected, u"de"_qs);
    EXPECT_EQ(record.audioRetainedId, audioId);
    EXPECT_EQ(record.pendingAudioId, std::nullopt);
    EXPECT_EQ(pendingAudioFiles::readMetadata(audioId).completedAt, clock.wallTime());
    EXPECT_EQ(recovered, QStringList(id.toString(QUuid::WithoutBraces)));
    EXPECT_TRUE(network.isMonitoring);
    EXPECT_EQ(clock.pending(), 0U) << "nothing waits, so nothing ticks";
}

TEST_F(PendingTranscriptionManagerTest, EmptyResultsEndAfterTheSecond) {
    const auto id = addPending(audioId);
    answerWith(u" \n"_qs);
    start();
    EXPECT_EQ(stored(id).status, RecordStatus::pendingTranscription);
    EXPECT_EQ(stored(id).retryCount, 1);
    EXPECT_EQ(pendingAudioFiles::diskEmptyResultCount(audioId), 1);
    clock.advance(30s);
    EXPECT_EQ(client.calls.size(), 2);
    EXPECT_EQ(stored(id).status, RecordStatus::unrecognized);
    EXPECT_EQ(pendingAudioFiles::diskEmptyResultCount(audioId), 2);
    EXPECT_TRUE(pendingAudioFiles::audioFilesExist(audioId));
    EXPECT_EQ(clock.pending(), 0U);
    start();
    EXPECT_EQ(client.calls.size(), 2);
}

TEST_F(PendingTranscriptionManagerTest, AMeetingIsFirstLookedForAtTheServer) {
    const auto poll = [](const QString& status, const std::optional<QString>& text = {}) {
        DiarizationPollResponse response{.status = status, .taskId = u"t"_qs, .message = {}, .result = {}};
        if (text)
            response.result = DiarizeResponse{
                .plainText = *text,
                .processedText = {},
                .segments = {{.speakerLabel = u"A"_qs, .end = 1.5, .text = *text}},
                .summary = u"short"_qs,
                .speakerCount = 2,
            };
        return std::optional(response);
    };
    // What the server says, and the text of the record then; without one it still waits.
    const auto uploaded = u"Hello everybody"_qs;
    const std::tuple<const char*, std::optional<DiarizationPollResponse>, QString> cases[] = {
        {"done", poll(u"completed"_qs, u"Found"_qs), u"Found"_qs},
        {"running", poll(u"processing"_qs), {}},
        {"queued", poll(u"queued"_qs), {}},
        {"failed", poll(u"failed"_qs), uploaded},
        {"done without words", poll(u"completed"_qs, QString()), uploaded},
        {"unknown", std::nullopt, uploaded},
        {"out of order", std::nullopt, uploaded},
    };
    int number = 0;
    for (const auto& [name, answer, text] : cases) {
        const auto audio = u"meeting-%1"_qs.arg(++number);
        const auto id = addPending(audio, [&](RecordFields& record) {
            record.isMeetingMode = true;
            record.clientRecordingId = u"client"_qs;
        });
        client.calls.clear();
        client.onPoll = [&said = answer, isBroken = QByteArray(name) == "out of order"](const auto&) {
            return isBroken ? throw TranscriptionFileClientError::serverError(500, {}) : said;
        };
        start();
        QStringList expected(u"recover client"_qs);
        if (text == uploaded)
            expected << u"diarize "_qs + audio;
        EXPECT_EQ(client.operations(), expected) << name;
        const auto record = stored(id);
        EXPECT_EQ(record.text, text) << name;
        EXPECT_EQ(record.retryCount, 0) << name;
        EXPECT_EQ(record.lastRetryAt, std::nullopt) << name;
        EXPECT_EQ(record.status, text.isEmpty() ? RecordStatus::pendingTranscription : RecordStatus::completed) << name;
        if (QByteArray(name) == "done") {
            EXPECT_EQ(record.speakerCount, 2);
            EXPECT_EQ(record.meetingSummary, u"short"_qs);
            const auto segments = TranscriptionRecord(record).meetingSegments();
            ASSERT_TRUE(segments && segments->size() == 1);
            EXPECT_EQ(segments->front().end, 1.5);
        }
        removePending(id, audio);
    }
}

TEST_F(PendingTranscriptionManagerTest, RecordsOfOneAudioAreUpdatedTogether) {
    const auto older = [&](int minutes) {
        return [this, minutes](RecordFields& record) { record.createdAt = clock.wallTime().addSecs(-60LL * minutes); };
    };
    const auto first = addPending(audioId, older(9));
    const auto duplicate = addPending(audioId, older(8));
    const auto partial = addPending(audioId, [&](RecordFields& record) {
        record.text = u"Hello"_qs;
        record.retryCount = 1;
        record.lastRetryAt = clock.wallTime().addSecs(-10);
    });
    start();
    EXPECT_EQ(client.calls.size(), 0) << "one of them was tried just now";
    clock.advance(30s);
    EXPECT_EQ(client.calls.size(), 1);
    EXPECT_EQ(stored(first).text, u"Hello there"_qs);
    EXPECT_EQ(context().record(duplicate), nullptr);
    EXPECT_EQ(stored(partial).text, u"Hello there"_qs);
    EXPECT_EQ(stored(partial).status, RecordStatus::completed);
    // What had been read before is kept as an earlier version.
    const auto versions = TranscriptionRecord(stored(partial)).persistedVersions();
    ASSERT_EQ(versions.size(), 1);
    EXPECT_EQ(versions.front().text, u"Hello"_qs);
    EXPECT_EQ(recovered.size(), 1);
}

TEST_F(PendingTranscriptionManagerTest, TheNetworkDecidesWhenNotHowOften) {
    const auto first =
        addPending(audioId, [&](RecordFields& record) { record.createdAt = record.createdAt.addSecs(-9); });
    const auto second = addPending(u"second"_qs);
    network.setConnected(false);
    start();
    EXPECT_EQ(client.calls.size(), 0);
    EXPECT_EQ(clock.pending(), 0U) << "the return of the network is awaited, not polled for";
    network.setConnected(true);
    EXPECT_EQ(client.calls.size(), 2);
    EXPECT_EQ(recovered.size(), 2);

    // It drops while a file is sent: neither this recording nor those behind it have had their attempt.
    manager->retranscribeRecording(audioId, {});
    manager->retranscribeRecording(u"second"_qs, {});
    recovered.clear();
    client.calls.clear();
    client.holds = true;
    start();
    manager->retranscribeRecording(audioId, {});
    manager->retranscribeRecording(u"second"_qs, {});
    ASSERT_EQ(client.calls.size(), 1);
    network.setConnected(false);
    failWith(TranscriptionFileClientError::unreachable(u"gone"_qs));
    release();
    EXPECT_EQ(client.calls.size(), 1);
    for (const auto& id : {first, second}) {
        EXPECT_EQ(stored(id).status, RecordStatus::pendingTranscription);
        EXPECT_EQ(stored(id).retryCount, 0);
    }
    client.holds = false;
    answerWith(u"again"_qs);
    network.setConnected(true);
    EXPECT_EQ(client.calls.size(), 3);
    EXPECT_EQ(stored(first).text, u"again"_qs);
    EXPECT_EQ(stored(second).text, u"again"_qs);
}

TEST_F(PendingTranscriptionManagerTest, OnePassAtATimeTakesWhatArrivesMeanwhile) {
    const LogLines log;
    addPending(audioId);
    client.holds = true;
    start();
    ASSERT_EQ(client.calls.size(), 1);
    EXPECT_TRUE(manager->isProcessing());
    const auto late = addPending(u"late"_qs);
    post(notification::pendingRecordingSaved);
    post(notification::realTimeRecordingStarted);
    EXPECT_EQ(client.calls.size(), 1);
    EXPECT_EQ(log.count("⏳ Already processing pending recordings, skipping"), 1);
    client.holds = false;
    release();
    EXPECT_EQ(client.operations(), QStringList({u"transcribe "_qs + audioId, u"transcribe late"_qs}));
    EXPECT_EQ(stored(late).status, RecordStatus::completed);
    EXPECT_EQ(log.count("Re-check: found 1 new pending recording(s) arrived during processing"), 1) << log.text();
    EXPECT_FALSE(manager->isProcessing());
}

TEST_F(PendingTranscriptionManagerTest, WhatIsBeingRecordedIsNotTouched) {
    AudioFileWriter writer(audioId);
    addPending(audioId);
    writer.startWriting();
    start();
    EXPECT_EQ(client.calls.size(), 0);
    writer.finalize();
    post(notification::realTimeRecordingStopped);
    EXPECT_EQ(client.calls.size(), 1);
}

TEST_F(PendingTranscriptionManagerTest, OnlyTheUsersOwnRecordingsAreSent) {
    auth.user.reset();
    const auto owned = [](const char* user) {
        return [user](RecordFields& record) { record.userId = QString::fromLatin1(user); };
    };
    const auto anonymous = addPending(u"anonymous"_qs, owned("anonymous-1"));
    const auto mine = addPending(u"mine"_qs, owned("account-1"));
    const auto others = addPending(u"others"_qs, owned("account-2"));
    const auto nobodys = addPending(u"nobodys"_qs, owned(""));
    start();
    EXPECT_EQ(client.calls.size(), 0) << "nobody is signed in";
    EXPECT_EQ(clock.pending(), 0U);

    // Anonymous first, without a server that works; then signed in, to another id.
    failWith(broken);
    auth.user = AuthUser{.id = u"anonymous-1"_qs};
    post(notification::authUserDidChange);
    EXPECT_EQ(client.calls.size(), 2);
    answerWith(u"a"_qs);
    start();
    auth.user = AuthUser{.id = u"account-1"_qs, .isAnonymous = false};
    post(notification::authUserDidChange);
    clock.advance(30s);
    for (const auto& id : {anonymous, mine, nobodys})
        EXPECT_EQ(stored(id).status, RecordStatus::completed);
    EXPECT_EQ(stored(others).status, RecordStatus::pendingTranscription);
    EXPECT_EQ(clock.pending(), 0U) << "another account's recordings wait for its sign-in";
    auth.user = AuthUser{.id = u"account-2"_qs, .isAnonymous = false};
    post(notification::authUserDidChange);
    EXPECT_EQ(stored(others).status, RecordStatus::completed);
}

TEST_F(PendingTranscriptionManagerTest, AnAnonymousRecordingGoesToNoOtherServerUnlessAsked) {
    const auto of = [](const QString& user) { return [user](RecordFields& record) { record.userId = user; }; };
    const auto become = [this](const QString& where, const AuthUser& user) {
        server = where;
        auth.user = user;
        client.calls.clear();
        start();
    };
    preferences.setValue(u"pendingAnonymousUserIds"_qs, u"anonymous-0"_qs); // as an earlier version left it
    network.setConnected(false);
    become(u"local"_qs, {.id = u"anonymous-1"_qs});
    addPending(u"old"_qs, of(u"anonymous-0"_qs));
    addPending(u"first"_qs, of(u"anonymous-1"_qs));
    addPending(u"second"_qs, of(u"anonymous-1"_qs));
    manager.reset();
    network.setConnected(true);
    become(u"other.example:443"_qs, {.id = u"account"_qs, .isAnonymous = false});
    EXPECT_EQ(client.operations(), QStringList(u"transcribe old"_qs));
    EXPECT_TRUE(manager->retranscribeRecording(u"first"_qs, {}));
    EXPECT_EQ(client.operations().last(), u"transcribe first"_qs);
    become(u"local"_qs, {.id = u"account-2"_qs, .isAnonymous = false});
    EXPECT_EQ(client.operations(), QStringList(u"transcribe second"_qs));
    EXPECT_EQ(preferences.value(u"pendingAnonymousUserIds"_qs).toString(), u"anonymous-0,anonymous-1"_qs);
}

TEST_F(PendingTranscriptionManagerTest, ASessionThatEndedCostsNoAttempt) {
    const auto id = addPending(audioId);
    addPending(u"second"_qs);
    failWith(TranscriptionFileClientError(TranscriptionFileClientError::Kind::notAuthenticated));
    start();
    EXPECT_EQ(client.calls.size(), 1) << "the others would fare no better";
    EXPECT_EQ(stored(id).retryCount, 0);
    EXPECT_EQ(clock.pending(), 0U) << "asked again when somebody signs in, not every half minute";
    answerWith(u"a"_qs);
    post(notification::authUserDidChange);
    EXPECT_EQ(recovered.size(), 2);
}

TEST_F(PendingTranscriptionManagerTest, WhatTheUserDeletesMeanwhileStaysDeleted) {
    const auto id = addPending(audioId);
    client.holds = true;
    start();
    removePending(id, audioId);
    release();
    EXPECT_EQ(context().record(id), nullptr);
    EXPECT_EQ(folder.names(), QStringList());
    EXPECT_EQ(recovered, QStringList());
    EXPECT_EQ(clock.pending(), 0U);
}

TEST_F(PendingTranscriptionManagerTest, AManagerMayGoDuringAPass) {
    const auto id = addPending(audioId);
    client.holds = true;
    start();
    ASSERT_EQ(client.calls.size(), 1);
    manager.reset();
    release();
    EXPECT_EQ(stored(id).status, RecordStatus::pendingTranscription) << "left as it was, for the next start";
    EXPECT_EQ(clock.pending(), 0U);
    client.holds = false;
    start();
    EXPECT_EQ(stored(id).status, RecordStatus::completed);
}

} // namespace
} // namespace quillo::test
