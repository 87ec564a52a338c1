#include "PendingQueueFixture.h"
#include "Services/Queue/PendingRetryRules.h"
#include "Services/Recordings/KeptReasons.h"

#include <gmock/gmock.h>

namespace quillo::test {
namespace {

// When a recording is sent again, how often, and what a server that fails or is absent costs.

const auto broken = TranscriptionFileClientError::serverError(500, {});

using PendingRetryTest = PendingQueueFixture;

TEST(PendingRetryRules, TheTableOfWaits) {
    const std::pair<int64_t, std::chrono::seconds> table[] = {{0, 5s},    {1, 15s},    {2, 60s},     {4, 60s},
                                                              {5, 3600s}, {28, 3600s}, {29, 10800s}, {1000, 10800s}};
    for (const auto& [attempts, wait] : table)
        EXPECT_EQ(pendingRetry::backoff(attempts), wait) << attempts;
}

TEST_F(PendingRetryTest, AWeekOfFailuresKeepsToTheSchedule) {
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

TEST_F(PendingRetryTest, LimitsAndWaits) {
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
        const auto audio = u"case-%1"_qs.arg(++number);
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
        EXPECT_EQ(client.operations(), isSent ? QStringList(u"transcribe "_qs + audio) : QStringList()) << name;
        EXPECT_EQ(stored(id).status, isSent ? RecordStatus::completed : status) << name;
        EXPECT_TRUE(pendingAudioFiles::audioFilesExist(audio)) << name;
        // What is given up is kept like any other audio, and safe from the clean-up of what waits too long.
        if (status != pending) {
            EXPECT_TRUE(pendingAudioFiles::readMetadata(audio).completedAt) << name;
            EXPECT_EQ(stored(id).audioRetainedId, audio) << name;
        }
        removePending(id, audio);
    }
}

TEST_F(PendingRetryTest, ARecoveredServerIsAskedAgainSoon) {
    const auto id = addPending(audioId);
    failWith(broken);
    start();
    clock.advance(240s); // the fifth attempt; the next is an hour away
    ASSERT_EQ(client.calls.size(), 5);
    client.calls.clear();
    answerWith(u"at last"_qs);

    // Three dictations in a row begin one pass, after they are done.
    for (int i = 0; i < 3; ++i)
        post(notification::transcriptionSucceeded);
    EXPECT_EQ(client.calls.size(), 0);
    clock.advance(5s);
    EXPECT_EQ(client.operations(), QStringList(u"transcribe "_qs + audioId));
    EXPECT_EQ(stored(id).text, u"at last"_qs);
}

TEST_F(PendingRetryTest, OthersSuccessPushesWhatFailedToItsEndButNotWhatTheServerRefuses) {
    for (const auto& [status, attempts] : {std::pair(500, 12), {400, 1}, {413, 1}, {422, 1}}) {
        const auto audio = u"audio-%1"_qs.arg(status);
        const auto id = addPending(audio);
        failWith(TranscriptionFileClientError::serverError(status, u"RECOGNITION_CRASHED"_qs));
        client.calls.clear();
        start();
        for (int dictation = 0; dictation < (attempts == 1 ? 2 : 20); ++dictation) {
            post(notification::transcriptionSucceeded);
            clock.advance(5s);
        }
        EXPECT_EQ(client.operations().count(u"transcribe "_qs + audio), attempts) << status;
        EXPECT_EQ(stored(id).status,
                  attempts == 12 ? RecordStatus::transcriptionFailed : RecordStatus::pendingTranscription);
        removePending(id, audio);
    }
}

TEST_F(PendingRetryTest, AnAbsentServerCostsNoAttemptAndIsAskedWithOneRecordingAtATime) {
    const std::function<TranscriptionFileResponse()> absences[] = {
        []() -> TranscriptionFileResponse {
            throw TranscriptionFileClientError::unreachable(u"Connection refused"_qs);
        },
        []() -> TranscriptionFileResponse { throw FileError(u"the disk is full"_qs); },
        []() -> TranscriptionFileResponse { throw TranscriptionFileClientError::serverError(429, {}); },
        []() -> TranscriptionFileResponse { throw TranscriptionFileClientError::serverError(502, {}); },
        []() -> TranscriptionFileResponse {
            throw TranscriptionFileClientError::serverError(503, {}, u"STT_UNAVAILABLE"_qs);
        },
        []() -> TranscriptionFileResponse { throw TranscriptionFileClientError::serverError(504, {}); },
    };
    for (const auto& absence : absences) {
        const auto first = addPending(u"first"_qs);
        const auto second = addPending(u"second"_qs);
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
                  QStringList({u"transcribe first"_qs, u"transcribe second"_qs, u"transcribe first"_qs}));
        clock.advance(24h);
        for (const auto& id : {first, second}) {
            EXPECT_EQ(stored(id).status, RecordStatus::pendingTranscription);
            EXPECT_EQ(stored(id).retryCount, 0);
        }
        answerWith(u"at last"_qs);
        post(notification::transcriptionSucceeded);
        post(notification::authUserDidChange); // whatever says that the server may be there again
        for (const auto& id : {first, second})
            EXPECT_EQ(stored(id).text, u"at last"_qs);

        const auto old = addPending(
            u"old"_qs, [&](RecordFields& record) { record.createdAt = clock.wallTime().addDays(-7).addSecs(3600); });
        client.onTranscribe = [&](const auto&) { return absence(); };
        start();
        clock.advance(2h);
        EXPECT_EQ(stored(old).status, RecordStatus::transcriptionFailed) << "a week is the limit all the same";
        EXPECT_EQ(pendingAudioFiles::readMetadata(u"old"_qs).reason, pendingAudioFiles::expiredReason);
        for (const auto& id : {first, second, old})
            context().remove(context().record(id));
        context().save();
    }
}

TEST_F(PendingRetryTest, TheAnswerDecidesWhetherItCountsAndWhenTheServerIsAskedAgain) {
    using Error = TranscriptionFileClientError;
    struct Case {
        const char* name;
        Error error;
        int64_t attempts; ///< that the first answer costs
        int64_t again;    ///< seconds until the second request
    };
    const Case cases[] = {
        {"still running", Error::serverError(202, {}, u"STILL_PROCESSING"_qs), 0, 30},
        {"the recogniser failed on it", Error::serverError(503, {}, u"TRANSCRIPTION_ERROR"_qs), 1, 30},
        {"it wants a pause", Error::serverError(503, {}, {}, 200s), 0, 210},
        {"a pause without an end", Error::serverError(429, {}, {}, 24h * 365), 0, 3600},
    };
    for (const auto& [name, error, attempts, again] : cases) {
        const auto id = addPending(audioId);
        client.calls.clear();
        failWith(error);
        start();
        EXPECT_EQ(stored(id).retryCount, attempts) << name;
        EXPECT_EQ(stored(id).status, RecordStatus::pendingTranscription) << name;
        clock.advance(std::chrono::seconds(again - 1));
        EXPECT_EQ(client.calls.size(), 1) << name;
        clock.advance(1s);
        EXPECT_EQ(client.calls.size(), 2) << name;
        removePending(id, audioId);
    }
}

TEST_F(PendingRetryTest, ALanguageThatTheServerDoesNotUnderstandEndsTheWaitWithItsReason) {
    int notices = 0;
    const auto noticed = QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted,
                                          [&](const QString& name) { notices += name == notification::userNotice; });
    failWith(TranscriptionFileClientError::serverError(422, u"English only"_qs, u"LANGUAGE_NOT_SERVED"_qs));
    const auto id = addPending(audioId);
    const auto second = addPending(u"second"_qs);
    start();
    EXPECT_EQ(client.calls.size(), 2) << "one attempt each";
    EXPECT_EQ(notices, 1);
    for (const auto& each : {id, second})
        EXPECT_EQ(stored(each).status, RecordStatus::transcriptionFailed);
    EXPECT_EQ(pendingAudioFiles::readMetadata(audioId).reason, pendingAudioFiles::languageReason);
    EXPECT_EQ(clock.pending(), 0U);
    manager->retranscribeRecording(audioId, {});
    EXPECT_EQ(notices, 2) << "who asks again gets an answer";
    answerWith(u"in English"_qs);
    EXPECT_TRUE(manager->retranscribeRecording(audioId, u"en"_qs));
    EXPECT_EQ(stored(id).text, u"in English"_qs);
    QObject::disconnect(noticed);
}

TEST_F(PendingRetryTest, ARecordingThatTheWayDoesNotBearHoldsNoOtherUp) {
    const auto large = addPending(u"large"_qs);
    const auto small = addPending(u"small"_qs);
    client.onTranscribe = [](const auto& call) {
        if (call.id == u"large"_qs)
            throw TranscriptionFileClientError::unreachable(u"Connection reset"_qs);
        return TranscriptionFileResponse{.text = u"short"_qs};
    };
    start();
    clock.advance(30s);
    EXPECT_EQ(stored(small).text, u"short"_qs);
    EXPECT_EQ(stored(large).retryCount, 1) << "the server was there for the other";
}

} // namespace
} // namespace quillo::test
