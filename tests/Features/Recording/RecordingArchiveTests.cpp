#include "Data/Storage/Database.h"
#include "RecordingFixture.h"

#include <QFileInfo>

#include <unistd.h>

namespace quillo::test {

namespace {

using namespace std::chrono_literals;

/// Of this process; proc(5).
[[maybe_unused]] qint64 residentBytes() {
    QFile pages(u"/proc/self/statm"_qs);
    EXPECT_TRUE(pages.open(QIODevice::ReadOnly));
    return pages.readAll().split(' ').at(1).toLongLong() * ::sysconf(_SC_PAGESIZE);
}

/// What is left of a dictation on the disk and in the history, however it ends.
class RecordingArchiveTests : public RecordingFixture {
protected:
    /// Speaks `count` chunks that are all different.
    QByteArray say(int count) {
        QByteArray said;
        for (int i = 0; i < count; ++i) {
            const QByteArray chunk(AudioFormat::chunkByteSize, static_cast<char>(++m_spoken));
            audio.speak(0.5F, chunk);
            settle();
            said += chunk;
        }
        return said;
    }
    /// The one record, whose audio must be `said` to the last sample.
    RecordPointer onlyRecord(const QByteArray& said) {
        const auto all = records();
        if (all.size() != 1) {
            ADD_FAILURE() << all.size() << " records";
            return nullptr;
        }
        EXPECT_EQ(audioOnDisk(all.front()->effectiveAudioId().value_or(QString())), said);
        return all.front();
    }

private:
    int m_spoken = 0;
};

TEST_F(RecordingArchiveTests, everyEndKeepsTheAudioWhereItBelongs) {
    struct Case {
        const char* name;
        QString status;
        const char* text;
        const char* reason;
        std::function<void()> end;
    };
    const QString pending = RecordStatus::pendingTranscription;
    const QString completed = RecordStatus::completed;
    const std::vector<Case> cases{
        {"text", completed, "hello there", "completed", [&] { stop(), endSession(u"hello there"_qs); }},
        {"zero words", RecordStatus::unrecognized, "", "completed(empty_result_zero_words)",
         [&] { stop(), endSession({}); }},
        {"no answer", pending, "", "completed(empty_text_from_server)", [&] { stop(), clock.advance(9s); }},
        {"no last word", pending, "so far", "completed",
         [&] {
             webSocket.currentTexts.accumulatedText = u"so far"_qs;
             stop(), clock.advance(9s);
         }},
        {"connection lost while stopping", pending, "", "completed(empty_text_from_server)",
         [&] { stop(), loseConnection(); }},
        {"connection lost while recording", pending, "", "completed(offline_stop)", [&] { loseConnection(), stop(); }},
        {"recogniser out of order", pending, "", "fatal_stt_error(STT_UNAVAILABLE)",
         [&] { serverFails("STT_UNAVAILABLE"), stop(); }},
        {"cancelled after the stop", pending, "", "cancelled(user_cancel)", [&] { stop(), cancel(); }},
        {"reset from outside", pending, "", "cancelled(reset)", [&] { send(action::Reset{}); }},
        {"text not inserted", completed, "a secret", "failed(text_injection)",
         [&] {
             injection.failure = TextInjectionError::Code::secureInput;
             stop(), endSession(u"a secret"_qs);
             injection.failure.reset();
         }},
        {"accessibility taken away", completed, "kept", "failed(accessibility_missing_injection)",
         [&] {
             permissions.accessibility = false;
             stop(), endSession(u"kept"_qs);
             permissions.accessibility = true;
         }},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        webSocket.currentTexts = {};
        notifications.clear();
        record();
        const auto said = QByteArray(5 * AudioFormat::chunkByteSize, '\0') + say(2);
        test.end();
        expectQuiet();
        EXPECT_EQ(effects->lastReport()->reason, QString::fromLatin1(test.reason));
        if (const auto kept = onlyRecord(said)) {
            EXPECT_EQ(kept->status, test.status);
            EXPECT_EQ(kept->text, QString::fromLatin1(test.text));
            EXPECT_EQ(kept->durationMs, 700);
            EXPECT_EQ(kept->userId, u"user-1"_qs);
            EXPECT_EQ(notifications.contains(notification::pendingRecordingSaved), test.status == pending);
            // What the queue finds on the disk says the same.
            EXPECT_EQ(AudioFileWriter::listPendingRecordings().size(), test.status == pending ? 1U : 0U);
            forgetRecords();
        }
    }
}

TEST_F(RecordingArchiveTests, whatTheUserDidNotWantLeavesNothing) {
    const std::vector<std::pair<const char*, std::function<void()>>> ends{
        {"cancelled", [&] { record(), cancel(); }},
        {"tapped", [&] { start(), say(1), clock.advance(100ms), stop(); }},
        {"never heard", [&] { start(), startSession(), clock.advance(500ms), stop(); }},
    };
    for (const auto& [name, end] : ends) {
        SCOPED_TRACE(name);
        end();
        endSession(u"must not appear"_qs);
        clock.advance(20s);
        expectQuiet();
        EXPECT_TRUE(records().isEmpty());
        EXPECT_EQ(audioFiles(), QStringList());
    }
}

TEST_F(RecordingArchiveTests, audioIsOnTheDiskWhileItIsCaptured) {
    start();
    const auto said = say(2);
    ASSERT_EQ(records().size(), 1);
    EXPECT_EQ(records().front()->status, RecordStatus::recording);
    const auto pending = AudioFileWriter::listPendingRecordings();
    ASSERT_EQ(pending.size(), 1U);
    EXPECT_EQ(pending.front().userId, u"user-1"_qs);
    EXPECT_EQ(audioOnDisk(pending.front().id), said);
    // A connection that takes nothing more must not hold the disk up.
    AsyncEvent taken;
    webSocket.beforeAudio = [&]() -> Task<> { co_await taken.wait(clock, 1h); };
    startSession();
    const auto more = say(20);
    EXPECT_EQ(audioOnDisk(pending.front().id), said + more);
    clock.advance(1s);
    stop();
    clock.advance(30s);
    EXPECT_FALSE(effects->isBusy());
    EXPECT_EQ(onlyRecord(said + more)->status, RecordStatus::pendingTranscription);
    taken.set();
    settle();
    webSocket.beforeAudio = nullptr;
    expectQuiet();
}

TEST_F(RecordingArchiveTests, aDamagedHistoryCostsTheRecordNotTheDictation) {
    Database(DataContainer::storeURL()).execute("DROP TABLE ZTRANSCRIPTIONRECORD");
    record();
    EXPECT_TRUE(is<Status::Recording>()) << description();
    stop();
    endSession(u"still works"_qs);
    ASSERT_EQ(injection.calls.size(), 1U);
    EXPECT_EQ(notifications.count(notification::userNotice), 1) << "the person reads nothing, or one thing twice";
    // The audio waits for a history that can hold the text.
    EXPECT_EQ(AudioFileWriter::listPendingRecordings().size(), 1U);
    expectQuiet();
}

TEST_F(RecordingArchiveTests, aSignInDuringTheDictationFindsItInTheHistory) {
    const auto user = std::exchange(auth.user, std::nullopt);
    record();
    EXPECT_TRUE(records().isEmpty());
    auth.user = user;
    stop();
    endSession(u"mine"_qs);
    ASSERT_EQ(records().size(), 1);
    EXPECT_EQ(records().front()->userId, user->id);
    EXPECT_EQ(records().front()->text, u"mine"_qs);
}

TEST_F(RecordingArchiveTests, aTextThatLacksAPartIsCompletedFromTheAudio) {
    const std::vector<std::pair<const char*, std::function<void()>>> losses{
        {"session restarted",
         [&] {
             record();
             serverFails("NO_SESSION");
             startSession();
         }},
        {"more than the buffer holds before the session",
         [&] {
             start();
             say(700);
             startSession();
             clock.advance(1s);
         }},
    };
    for (const auto& [name, lose] : losses) {
        SCOPED_TRACE(name);
        injection.calls.clear();
        lose();
        stop();
        endSession(u"the end of it"_qs);
        EXPECT_EQ(injection.calls.size(), 1U);
        ASSERT_EQ(records().size(), 1);
        EXPECT_EQ(records().front()->status, RecordStatus::pendingTranscription);
        EXPECT_EQ(records().front()->text, u"the end of it"_qs);
        forgetRecords();
    }
}

TEST_F(RecordingArchiveTests, theLastChunkIsKeptWhenTheProgramEnds) {
    record();
    const QByteArray last(1234, 'z');
    audio.beforeStop = [&] { audio.speak(0.1F, last); };
    bool done = false;
    TaskRunner runner([](const QString& name, const QString& error) { ADD_FAILURE() << qPrintable(name + error); });
    runner.run(u"quit"_qs, [&](std::stop_token) -> Task<> {
        co_await effects->shutDown();
        done = true;
    });
    settle();
    EXPECT_TRUE(done);
    expectQuiet();
    const auto kept = onlyRecord(QByteArray(5 * AudioFormat::chunkByteSize, '\0') + last);
    ASSERT_TRUE(kept);
    EXPECT_EQ(kept->status, RecordStatus::pendingTranscription);
    const int starts = audio.starts();
    send(action::Reset{});
    start();
    EXPECT_EQ(audio.starts(), starts) << "a dictation began while the program ends";
    EXPECT_TRUE(is<Status::Idle>()) << description();
}

TEST_F(RecordingArchiveTests, theProgramsEndWaitsForWhatIsKeptOfACancelledDictation) {
    record();
    store->send(action::StopRecording{});
    store->send(action::CancelRecording{});
    QString atTheEnd;
    TaskRunner runner([](const QString& name, const QString& error) { ADD_FAILURE() << qPrintable(name + error); });
    EventExecutor::main().post([&] { // after the stop and the cancel, before their work is done
        runner.run(u"quit"_qs, [&](std::stop_token) -> Task<> {
            co_await effects->shutDown();
            atTheEnd = records().isEmpty() ? QString() : records().front()->status;
        });
    });
    settle();
    EXPECT_EQ(atTheEnd, RecordStatus::pendingTranscription);
    expectQuiet();
}

TEST_F(RecordingArchiveTests, aDiskThatRefusesDoesNotStopTheDictation) {
    // A file where the folder should be.
    QDir().mkpath(data.path() + u"/QuilloSpeech"_qs);
    QFile blocked(data.path() + u"/QuilloSpeech/pending-audio"_qs);
    ASSERT_TRUE(blocked.open(QIODevice::WriteOnly));
    blocked.close();
    record();
    EXPECT_TRUE(notifications.contains(notification::userNotice));
    stop();
    endSession(u"still works"_qs);
    ASSERT_EQ(injection.calls.size(), 1U);
    ASSERT_EQ(records().size(), 1);
    EXPECT_EQ(records().front()->text, u"still works"_qs);
    EXPECT_EQ(records().front()->status, RecordStatus::completed);
    EXPECT_TRUE(store->state().savedToHistoryHintVisible);
    expectQuiet();
}

#if !defined(__has_feature) || !(__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
TEST_F(RecordingArchiveTests, fourHoursLeaveTheMemoryFlat) {
    constexpr int chunksPerHour = 36'000;
    webSocket.keepsAudio = false;
    record();
    const auto speakFor = [&](int chunks) {
        const QByteArray chunk(AudioFormat::chunkByteSize, 'x');
        for (int i = 0; i < chunks; ++i) {
            audio.speak(0.5F, QByteArray(chunk.constData(), chunk.size()));
            settle();
        }
    };
    speakFor(1000); // what is allocated once
    const auto before = residentBytes();
    speakFor(4 * chunksPerHour - 1000);
    EXPECT_LT(residentBytes() - before, 8 << 20);
    stop();
    endSession(u"long"_qs);
    ASSERT_EQ(records().size(), 1);
    EXPECT_EQ(records().front()->durationMs, (4 * chunksPerHour + 5) * 100);
    EXPECT_EQ(QFileInfo(audioPath(*records().front()->audioRetainedId)).size(),
              (4 * chunksPerHour + 5) * qint64(AudioFormat::chunkByteSize));
}
#endif

TEST_F(RecordingArchiveTests, theRecordCarriesWhatTheServerSaid) {
    record();
    stop();
    server::SessionEnded ended;
    ended.text = u"Guten Tag zusammen"_qs;
    ended.cleanupApplied = true;
    webSocket.currentTexts.rawTextBeforeCleanup = u"guten tag äh zusammen"_qs;
    ended.metricsId = u"m1"_qs;
    ended.languageDetected = u"de"_qs;
    ended.languageMismatch = LanguageMismatch{u"en"_qs, u"de"_qs, u"German"_qs, 0.9};
    serverSays(ended);
    ASSERT_EQ(records().size(), 1);
    const auto& kept = *records().front();
    EXPECT_EQ(kept.wordCount, 3);
    EXPECT_EQ(kept.sessionId, u"s1"_qs);
    EXPECT_EQ(kept.metricsServerId, u"m1"_qs);
    EXPECT_EQ(kept.languageDetected, u"de"_qs);
    EXPECT_TRUE(kept.detectedLanguageMismatch);
    EXPECT_EQ(kept.mismatchDetectedLanguageName, u"German"_qs);
    EXPECT_EQ(kept.sourceApp, u"Editor"_qs);
    EXPECT_EQ(kept.tagNames(), QStringList{u"Editor"_qs});
    EXPECT_EQ(kept.audioRetainedId, kept.clientRecordingId);
    EXPECT_EQ(counted, 1);
    EXPECT_EQ(kept.rawText, u"guten tag äh zusammen"_qs);
}

} // namespace

} // namespace quillo::test
