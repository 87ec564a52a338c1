#include "PendingQueueFixture.h"
#include "Services/Queue/PendingRetryRules.h"
#include "Support/LargestFile.h"
#include "Support/LogLines.h"

#include <gmock/gmock.h>

namespace quillo::test {
namespace {

const QString audioId = QStringLiteral("5f7c1c1e-0000-4000-8000-000000000001");
const auto broken = TranscriptionFileClientError::serverError(500, {});

class PendingTranscriptionManagerTest : public PendingQueueFixture {};

TEST(PendingRetryRules, TheTableOfWaits) {
    const std::pair<int64_t, std::chrono::seconds> table[] = {{0, 5s},    {1, 15s},    {2, 60s},     {4, 60s},
                                                              {5, 3600s}, {28, 3600s}, {29, 10800s}, {1000, 10800s}};
    for (const auto& [attempts, wait] : table)
        EXPECT_EQ(pendingRetry::backoff(attempts), wait) << attempts;
}

TEST_F(PendingTranscriptionManagerTest, ASuccessWritesTheRecordThenMarksTheAudio) {
    const auto id = addPending(audioId);
    client.onTranscribe = [](const auto&) {
        return TranscriptionFileResponse{.text = QStringLiteral(" Hello there "),
                                         .languageDetected = QStringLiteral("de"),
                                         .transcriptionId = QStringLiteral("session")};
    };
    start();
    ASSERT_EQ(client.calls.size(), 1);
    const auto& call = client.calls.front();
    EXPECT_EQ(call.id, audioId);
    EXPECT_EQ(call.language, QStringLiteral("en"));
    EXPECT_EQ(call.purpose, transcriptionPurpose::pending);
    EXPECT_EQ(call.clientRecordingId, audioId);
    const auto record = stored(id);
    EXPECT_EQ(record.status, RecordStatus::completed);
    EXPECT_EQ(record.text, QStringLiteral("Hello there"));
    EXPECT_EQ(record.wordCount, 2);
    EXPECT_EQ(record.languageDetected, QStringLiteral("de"));
    EXPECT_EQ(record.audioRetainedId, audioId);
    EXPECT_EQ(record.pendingAudioId, std::nullopt);
    EXPECT_EQ(pendingAudioFiles::readMetadata(audioId).completedAt, clock.wallTime());
    EXPECT_EQ(recovered, QStringList(id.toString(QUuid::WithoutBraces)));
    EXPECT_TRUE(network.isMonitoring);
    EXPECT_EQ(clock.pending(), 0U) << "nothing waits, so nothing ticks";
}

TEST_F(PendingTranscriptionManagerTest, AWeekOfFailuresKeepsToTheSchedule) {
    const auto id = addPending(audioId);
    std::vector<int64_t> times;
    const auto begin = clock.wallTime();
    client.onTranscribe = [&](const auto&) -> TranscriptionFileResponse {
        times.push_back(begin.secsTo(clock.wallTime()));
        throw broken;
    };
    start();
    clock.advance(25'439s);
    EXPECT_EQ(stored(id).status, RecordStatus::pendingTranscription);
    EXPECT_EQ(stored(id).retryCount, 12);
    EXPECT_EQ(clock.pending(), 1U);
    clock.advance(1s);
    EXPECT_EQ(stored(id).status, RecordStatus::transcriptionFailed) << "whether there are words in it nobody said";
    EXPECT_EQ(clock.pending(), 0U);
    clock.advance(7 * 24h);
    post(notification::realTimeRecordingStopped);
    // At every half minute, as soon as the wait is over; after the twelfth never again.
    EXPECT_THAT(times, testing::ElementsAre(0, 30, 90, 150, 210, 3810, 7410, 11'010, 14'610, 18'210, 21'810, 25'410));
    EXPECT_TRUE(pendingAudioFiles::audioFilesExist(audioId));
    EXPECT_EQ(stored(id).audioRetainedId, audioId);
    start();
    EXPECT_EQ(times.size(), 12U) << "nor after the next start";
    EXPECT_EQ(stored(id).status, RecordStatus::transcriptionFailed);
}

TEST_F(PendingTranscriptionManagerTest, LimitsAndWaits) {
    struct Case {
        const char* name;
        int64_t ageSeconds;
        int64_t attempts;
        std::optional<int64_t> waited; ///< seconds since the last attempt
        bool isSent;
        QString status; ///< when it is not sent
    };
    const auto pending = RecordStatus::pendingTranscription;
    const Case cases[] = {
        {"new", 60, 0, {}, true, {}},
        {"from the future", -4000, 0, {}, true, {}},
        {"nearly a week", 604'799, 0, {}, true, {}},
        {"a week", 604'800, 0, {}, false, RecordStatus::transcriptionFailed},
        {"a week, and often tried", 604'800, 12, {}, false, RecordStatus::transcriptionFailed},
        {"eleven attempts", 60, 11, {}, true, {}},
        {"twelve attempts", 60, 12, {}, false, RecordStatus::transcriptionFailed},
        {"beyond all attempts", 60, 400, 1, false, RecordStatus::transcriptionFailed},
        {"first wait", 60, 0, 4, false, pending},
        {"first wait over", 60, 0, 5, true, {}},
        {"second wait", 60, 1, 1, false, pending},
        {"second wait nearly over", 60, 1, 14, false, pending},
        {"second wait over", 60, 1, 15, true, {}},
        {"a minute", 60, 4, 59, false, pending},
        {"a minute over", 60, 4, 60, true, {}},
        {"an hour", 60, 5, 3599, false, pending},
        {"an hour over", 60, 5, 3600, true, {}},
        {"the clock was set back", 60, 5, -100'000, true, {}},
    };
    int number = 0;
    for (const auto& [name, age, attempts, waited, isSent, status] : cases) {
        const auto audio = QStringLiteral("case-%1").arg(++number);
        const auto createdAt = clock.wallTime().addSecs(-age);
        const auto id = addPending(audio, [&, a = attempts, w = waited](RecordFields& record) {
            record.createdAt = createdAt;
            record.retryCount = a;
            if (w)
                record.lastRetryAt = clock.wallTime().addSecs(-*w);
        });
        pendingAudioFiles::writeMetadata(RecordingsFolder::metadata(audio, createdAt));
        client.calls.clear();
        start();
        EXPECT_EQ(client.operations(), isSent ? QStringList(QStringLiteral("transcribe ") + audio) : QStringList())
            << name;
        EXPECT_EQ(stored(id).status, isSent ? RecordStatus::completed : status) << name;
        EXPECT_TRUE(pendingAudioFiles::audioFilesExist(audio)) << name;
        // What is given up is kept like any other audio, and safe from the clean-up of what waits too long.
        if (status != pending) {
            EXPECT_TRUE(pendingAudioFiles::readMetadata(audio).completedAt) << name;
            EXPECT_EQ(stored(id).audioRetainedId, audio) << name;
        }
        context().remove(context().record(id));
        context().save();
        pendingAudioFiles::deleteFiles(audio);
    }
}

TEST_F(PendingTranscriptionManagerTest, EmptyResultsEndAfterTheSecond) {
    const auto id = addPending(audioId);
    answerWith(QStringLiteral(" \n"));
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
        DiarizationPollResponse response{.status = status, .taskId = QStringLiteral("t"), .message = {}, .result = {}};
        if (text)
            response.result = DiarizeResponse{
                .plainText = *text,
                .processedText = {},
                .segments = {{.speakerLabel = QStringLiteral("A"), .end = 1.5, .text = *text}},
                .summary = QStringLiteral("short"),
                .speakerCount = 2,
            };
        return std::optional(response);
    };
    struct Case {
        const char* name;
        std::function<std::optional<DiarizationPollResponse>(const MockTranscriptionFileClient::Call&)> answer;
        bool isUploaded;
        QString text; ///< empty: still waiting
    };
    const auto uploaded = QStringLiteral("Hello everybody");
    const Case cases[] = {
        {"done", [&](const auto&) { return poll(QStringLiteral("completed"), QStringLiteral("Found")); }, false,
         QStringLiteral("Found")},
        {"running", [&](const auto&) { return poll(QStringLiteral("processing")); }, false, {}},
        {"queued", [&](const auto&) { return poll(QStringLiteral("queued")); }, false, {}},
        {"failed", [&](const auto&) { return poll(QStringLiteral("failed")); }, true, uploaded},
        {"done without words", [&](const auto&) { return poll(QStringLiteral("completed"), QString()); }, true,
         uploaded},
        {"unknown", [](const auto&) { return std::nullopt; }, true, uploaded},
        {"out of order", [](const auto&) -> std::optional<DiarizationPollResponse> { throw broken; }, true, uploaded},
    };
    int number = 0;
    for (const auto& [name, answer, isUploaded, text] : cases) {
        const auto audio = QStringLiteral("meeting-%1").arg(++number);
        const auto id = addPending(audio, [&](RecordFields& record) {
            record.isMeetingMode = true;
            record.clientRecordingId = QStringLiteral("client");
        });
        client.calls.clear();
        client.onPoll = answer;
        start();
        QStringList expected(QStringLiteral("recover client"));
        if (isUploaded)
            expected << QStringLiteral("diarize ") + audio;
        EXPECT_EQ(client.operations(), expected) << name;
        const auto record = stored(id);
        EXPECT_EQ(record.text, text) << name;
        EXPECT_EQ(record.retryCount, 0) << name;
        EXPECT_EQ(record.lastRetryAt, std::nullopt) << name;
        EXPECT_EQ(record.status, text.isEmpty() ? RecordStatus::pendingTranscription : RecordStatus::completed) << name;
        if (QByteArray(name) == "done") {
            EXPECT_EQ(record.speakerCount, 2);
            EXPECT_EQ(record.meetingSummary, QStringLiteral("short"));
            const auto segments = TranscriptionRecord(record).meetingSegments();
            ASSERT_TRUE(segments && segments->size() == 1);
            EXPECT_EQ(segments->front().speakerLabel, QStringLiteral("A"));
            EXPECT_EQ(segments->front().end, 1.5);
        }
        context().remove(context().record(id));
        context().save();
        pendingAudioFiles::deleteFiles(audio);
    }
}

TEST_F(PendingTranscriptionManagerTest, RecordsOfOneAudioAreUpdatedTogether) {
    const auto older = [&](int minutes) {
        return [this, minutes](RecordFields& record) { record.createdAt = clock.wallTime().addSecs(-60LL * minutes); };
    };
    const auto first = addPending(audioId, older(9));
    const auto duplicate = addPending(audioId, older(8));
    const auto partial = addPending(audioId, [&](RecordFields& record) {
        record.text = QStringLiteral("Hello");
        record.retryCount = 1;
        record.lastRetryAt = clock.wallTime().addSecs(-10);
    });
    start();
    EXPECT_EQ(client.calls.size(), 0) << "one of them was tried just now";
    clock.advance(30s);
    EXPECT_EQ(client.calls.size(), 1);
    EXPECT_EQ(stored(first).text, QStringLiteral("Hello there"));
    EXPECT_EQ(context().record(duplicate), nullptr);
    EXPECT_EQ(stored(partial).text, QStringLiteral("Hello there"));
    EXPECT_EQ(stored(partial).status, RecordStatus::completed);
    // What had been read before is kept as an earlier version.
    const auto versions = TranscriptionRecord(stored(partial)).persistedVersions();
    ASSERT_EQ(versions.size(), 1);
    EXPECT_EQ(versions.front().text, QStringLiteral("Hello"));
    EXPECT_EQ(recovered.size(), 1);
}

TEST_F(PendingTranscriptionManagerTest, TheNetworkDecidesWhenNotHowOften) {
    const auto first =
        addPending(audioId, [&](RecordFields& record) { record.createdAt = record.createdAt.addSecs(-9); });
    const auto second = addPending(QStringLiteral("second"));
    network.setConnected(false);
    start();
    EXPECT_EQ(client.calls.size(), 0);
    EXPECT_EQ(clock.pending(), 0U) << "the return of the network is awaited, not polled for";
    network.setConnected(true);
    EXPECT_EQ(client.calls.size(), 2);
    EXPECT_EQ(recovered.size(), 2);

    // It drops while a file is sent: neither this recording nor those behind it have had their attempt.
    manager->retranscribeRecording(audioId, {});
    manager->retranscribeRecording(QStringLiteral("second"), {});
    recovered.clear();
    client.calls.clear();
    client.holds = true;
    start();
    manager->retranscribeRecording(audioId, {});
    manager->retranscribeRecording(QStringLiteral("second"), {});
    ASSERT_EQ(client.calls.size(), 1);
    network.setConnected(false);
    failWith(TranscriptionFileClientError::unreachable(QStringLiteral("gone")));
    client.release();
    EventExecutor::main().drain();
    EXPECT_EQ(client.calls.size(), 1);
    for (const auto& id : {first, second}) {
        EXPECT_EQ(stored(id).status, RecordStatus::pendingTranscription);
        EXPECT_EQ(stored(id).retryCount, 0);
    }
    client.holds = false;
    answerWith(QStringLiteral("again"));
    network.setConnected(true);
    EXPECT_EQ(client.calls.size(), 3);
    EXPECT_EQ(stored(first).text, QStringLiteral("again"));
    EXPECT_EQ(stored(second).text, QStringLiteral("again"));
}

TEST_F(PendingTranscriptionManagerTest, OnePassAtATimeTakesWhatArrivesMeanwhile) {
    const LogLines log;
    addPending(audioId);
    client.holds = true;
    start();
    ASSERT_EQ(client.calls.size(), 1);
    EXPECT_TRUE(manager->isProcessing());
    const auto late = addPending(QStringLiteral("late"));
    post(notification::pendingRecordingSaved);
    post(notification::realTimeRecordingStarted);
    EXPECT_EQ(client.calls.size(), 1);
    EXPECT_EQ(log.count("⏳ Already processing pending recordings, skipping"), 1);
    client.holds = false;
    client.release();
    EventExecutor::main().drain();
    EXPECT_EQ(client.operations(),
              QStringList({QStringLiteral("transcribe ") + audioId, QStringLiteral("transcribe late")}));
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

TEST_F(PendingTranscriptionManagerTest, ARecoveredServerIsAskedAgainSoon) {
    const auto id = addPending(audioId);
    failWith(broken);
    start();
    clock.advance(240s); // the fifth attempt; the next is an hour away
    ASSERT_EQ(client.calls.size(), 5);
    failWith(TranscriptionFileClientError::serverError(413, QStringLiteral("too large")));
    const auto refused = addPending(QStringLiteral("refused"));
    post(notification::pendingRecordingSaved);
    ASSERT_EQ(client.calls.size(), 6);
    client.calls.clear();
    answerWith(QStringLiteral("at last"));

    // Three dictations in a row begin one pass, after they are done.
    for (int i = 0; i < 3; ++i)
        post(notification::transcriptionSucceeded);
    EXPECT_EQ(client.calls.size(), 0);
    clock.advance(5s);
    EXPECT_EQ(client.operations(), QStringList(QStringLiteral("transcribe ") + audioId));
    EXPECT_EQ(stored(id).text, QStringLiteral("at last"));
    // What the server itself refused keeps its wait.
    EXPECT_EQ(stored(refused).retryCount, 1);
    clock.advance(30s);
    EXPECT_EQ(client.calls.size(), 2);
}

TEST_F(PendingTranscriptionManagerTest, WhatFailsWhenTheServerWorksComesToItsEnd) {
    const auto id = addPending(audioId);
    failWith(broken);
    start();
    for (int dictation = 0; dictation < 20; ++dictation) {
        post(notification::transcriptionSucceeded);
        clock.advance(5s);
    }
    EXPECT_EQ(client.calls.size(), 12);
    EXPECT_EQ(stored(id).status, RecordStatus::transcriptionFailed);
}

TEST_F(PendingTranscriptionManagerTest, ARecordingThatTheServerRefusesIsNotPushedByOthersSuccess) {
    for (const int status : {400, 413, 422}) {
        const auto audio = QStringLiteral("refused-%1").arg(status);
        addPending(audio);
        failWith(TranscriptionFileClientError::serverError(status, QStringLiteral("RECOGNITION_CRASHED")));
        client.calls.clear();
        start();
        for (int dictation = 0; dictation < 2; ++dictation) {
            post(notification::transcriptionSucceeded);
            clock.advance(5s);
        }
        EXPECT_EQ(client.operations().count(QStringLiteral("transcribe ") + audio), 1) << status;
    }
}

TEST_F(PendingTranscriptionManagerTest, AnAbsentServerCostsNoAttemptAndIsAskedWithOneRecordingAtATime) {
    const std::function<TranscriptionFileResponse()> absences[] = {
        []() -> TranscriptionFileResponse {
            throw TranscriptionFileClientError::unreachable(QStringLiteral("Connection refused"));
        },
        []() -> TranscriptionFileResponse { throw FileError(QStringLiteral("the disk is full")); },
    };
    for (const auto& absence : absences) {
        const auto first = addPending(QStringLiteral("first"));
        const auto second = addPending(QStringLiteral("second"));
        std::vector<int64_t> times;
        const auto begin = clock.wallTime();
        client.calls.clear();
        client.onTranscribe = [&](const auto&) {
            times.push_back(begin.secsTo(clock.wallTime()));
            return absence();
        };
        start();
        clock.advance(16min);
        EXPECT_THAT(times, testing::ElementsAre(0, 30, 90, 150, 210, 510, 810));
        EXPECT_EQ(client.operations().mid(0, 3),
                  QStringList({QStringLiteral("transcribe first"), QStringLiteral("transcribe second"),
                               QStringLiteral("transcribe first")}));
        clock.advance(24h);
        for (const auto& id : {first, second}) {
            EXPECT_EQ(stored(id).status, RecordStatus::pendingTranscription);
            EXPECT_EQ(stored(id).retryCount, 0);
        }
        answerWith(QStringLiteral("at last"));
        post(notification::transcriptionSucceeded);
        post(notification::authUserDidChange); // whatever says that the server may be there again
        for (const auto& id : {first, second})
            EXPECT_EQ(stored(id).text, QStringLiteral("at last"));

        const auto old = addPending(QStringLiteral("old"), [&](RecordFields& record) {
            record.createdAt = clock.wallTime().addDays(-7).addSecs(3600);
        });
        client.onTranscribe = [&](const auto&) { return absence(); };
        start();
        clock.advance(2h);
        EXPECT_EQ(stored(old).status, RecordStatus::transcriptionFailed) << "a week is the limit all the same";
        EXPECT_EQ(pendingAudioFiles::readMetadata(QStringLiteral("old")).reason, pendingAudioFiles::expiredReason);
        for (const auto& id : {first, second, old})
            context().remove(context().record(id));
        context().save();
    }
}

TEST_F(PendingTranscriptionManagerTest, ARecordingThatTheWayDoesNotBearHoldsNoOtherUp) {
    const auto large = addPending(QStringLiteral("large"));
    const auto small = addPending(QStringLiteral("small"));
    client.onTranscribe = [](const auto& call) {
        if (call.id == QStringLiteral("large"))
            throw TranscriptionFileClientError::unreachable(QStringLiteral("Connection reset"));
        return TranscriptionFileResponse{.text = QStringLiteral("short")};
    };
    start();
    clock.advance(30s);
    EXPECT_EQ(stored(small).text, QStringLiteral("short"));
    EXPECT_EQ(stored(large).retryCount, 1) << "the server was there for the other";
}

TEST_F(PendingTranscriptionManagerTest, OnlyTheUsersOwnRecordingsAreSent) {
    auth.user.reset();
    const auto owned = [](const char* user) {
        return [user](RecordFields& record) { record.userId = QString::fromLatin1(user); };
    };
    const auto anonymous = addPending(QStringLiteral("anonymous"), owned("anonymous-1"));
    const auto mine = addPending(QStringLiteral("mine"), owned("account-1"));
    const auto others = addPending(QStringLiteral("others"), owned("account-2"));
    const auto nobodys = addPending(QStringLiteral("nobodys"), owned(""));
    start();
    EXPECT_EQ(client.calls.size(), 0) << "nobody is signed in";
    EXPECT_EQ(clock.pending(), 0U);

    // Anonymous first, without a server that works; then signed in, to another id.
    failWith(broken);
    auth.user = AuthUser{.id = QStringLiteral("anonymous-1")};
    post(notification::authUserDidChange);
    EXPECT_EQ(client.calls.size(), 2);
    answerWith(QStringLiteral("a"));
    start();
    auth.user = AuthUser{.id = QStringLiteral("account-1"), .isAnonymous = false};
    post(notification::authUserDidChange);
    clock.advance(30s);
    for (const auto& id : {anonymous, mine, nobodys})
        EXPECT_EQ(stored(id).status, RecordStatus::completed);
    EXPECT_EQ(stored(others).status, RecordStatus::pendingTranscription);
    EXPECT_EQ(clock.pending(), 0U) << "another account's recordings wait for its sign-in";
    auth.user = AuthUser{.id = QStringLiteral("account-2"), .isAnonymous = false};
    post(notification::authUserDidChange);
    EXPECT_EQ(stored(others).status, RecordStatus::completed);
}

TEST_F(PendingTranscriptionManagerTest, ASessionThatEndedCostsNoAttempt) {
    const auto id = addPending(audioId);
    addPending(QStringLiteral("second"));
    failWith(TranscriptionFileClientError(TranscriptionFileClientError::Kind::notAuthenticated));
    start();
    EXPECT_EQ(client.calls.size(), 1) << "the others would fare no better";
    EXPECT_EQ(stored(id).retryCount, 0);
    EXPECT_EQ(clock.pending(), 0U) << "asked again when somebody signs in, not every half minute";
    answerWith(QStringLiteral("a"));
    post(notification::authUserDidChange);
    EXPECT_EQ(recovered.size(), 2);
}

TEST_F(PendingTranscriptionManagerTest, WhatTheUserDeletesMeanwhileStaysDeleted) {
    const auto id = addPending(audioId);
    client.holds = true;
    start();
    context().remove(context().record(id));
    context().save();
    pendingAudioFiles::deleteFiles(audioId);
    client.release();
    EventExecutor::main().drain();
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
    client.release();
    EventExecutor::main().drain();
    EXPECT_EQ(stored(id).status, RecordStatus::pendingTranscription) << "left as it was, for the next start";
    EXPECT_EQ(clock.pending(), 0U);
    client.holds = false;
    start();
    EXPECT_EQ(stored(id).status, RecordStatus::completed);
}

// Nothing of the store fits any more, while the small metadata files still do.
constexpr rlim_t storeIsFull = 2000;

TEST_F(PendingTranscriptionManagerTest, ATextThatTheStoreRefusesIsNotLost) {
    const auto id = addPending(audioId);
    network.setConnected(false);
    start();
    {
        const LargestFile full(storeIsFull);
        network.setConnected(true);
        ASSERT_EQ(client.calls.size(), 1);
        EXPECT_EQ(stored(id).text, QStringLiteral("Hello there")) << "in memory";
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
    EXPECT_EQ(stored(id).text, QStringLiteral("Hello there"));
}

TEST_F(PendingTranscriptionManagerTest, AKillBeforeTheTextIsSavedBringsItBackToTheQueue) {
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
    EXPECT_EQ(stored(id).text, QStringLiteral("Hello there"));
}

TEST_F(PendingTranscriptionManagerTest, TheVerdictIsKeptOnDiskWhenTheStoreRefuses) {
    for (const bool isEmpty : {false, true}) {
        const LogLines log; // of this case alone: the limit on the size of files holds for the log too
        const auto audio = isEmpty ? QStringLiteral("empty") : audioId;
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
        answerWith(QStringLiteral("Hello there"));
        EXPECT_TRUE(manager->retranscribeRecording(audio, {}));
        EXPECT_EQ(stored(id).status, RecordStatus::completed);
    }
}

} // namespace
} // namespace quillo::test
