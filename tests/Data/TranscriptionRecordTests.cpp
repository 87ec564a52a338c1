#include "Data/Models/TranscriptionRecord.h"

#include "Support/Files.h"

#include <QRandomGenerator>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <limits>

namespace quillo::test {
namespace {

TEST(SegmentTimes, AreMinutesThenHours) {
    const std::pair<double, const char*> cases[] = {
        {59.9, "00:59"},     {60, "01:00"},
        {3599.999, "59:59"}, {3600, "1:00:00"},
        {3725.5, "1:02:05"}, {360'000, "100:00:00"},
        {-1, "00:00"},       {std::numeric_limits<double>::quiet_NaN(), "00:00"}};
    for (const auto& [seconds, shown] : cases)
        EXPECT_EQ(formatSegmentTime(seconds).toStdString(), shown);
    // Must not overflow, whatever it shows.
    EXPECT_FALSE(formatSegmentTime(std::numeric_limits<double>::infinity()).isEmpty());
}

TEST(RecordData, ComesBackAsItWasEncoded) {
    TranscriptionRecord record;
    const QList<MeetingSegment> meeting{{u"s1"_qs, u"Änne \"A\""_qs, u"你好\n"_qs, 0.25, 2},
                                        {u"s2"_qs, QString(), u"👋"_qs, 2, 3}};
    const QList<ChannelSegment> channels{{ChannelSegment::Channel::system, u"Others"_qs, u"x"_qs, 1, 2}};
    const QList<PersistedTextVersion> versions{
        {u"old"_qs, u"Formal"_qs, QDateTime::fromMSecsSinceEpoch(1'790'000'000'123, Qt::UTC)}};
    record.setMeetingSegments(meeting);
    record.setChannelSegments(channels);
    record.saveVersions(versions);
    record.setSpeakerNames({{u"s1"_qs, u"Änne"_qs}});
    EXPECT_EQ(record.meetingSegments(), meeting);
    EXPECT_EQ(record.channelSegments(), channels);
    EXPECT_EQ(record.persistedVersions(), versions);
    EXPECT_EQ(record.speakerNames().value(u"s1"_qs), u"Änne"_qs);
    // Not a number in one time must not cost the whole meeting.
    auto odd = meeting;
    odd[1].end = std::numeric_limits<double>::quiet_NaN();
    record.setMeetingSegments(odd);
    ASSERT_TRUE(record.meetingSegments());
    EXPECT_EQ(record.meetingSegments()->at(0), meeting.at(0));
}

TEST(RecordData, ThatCannotBeDecodedReadsAsEmpty) {
    QByteArrayList cases{QByteArray("[\"\0\"]", 5), QByteArray(200'000, '[')};
    for (const auto* const bytes :
         {"", "null", "{", "[1]", "[\"a\", 1]", "{\"a\": 1}", "[{\"text\": \"x\"}]", "[1e999]", "\xff\xfe[]",
          "\"\\ud800\"", R"([{"channel": 7, "channelLabel": "", "text": "", "start": 0, "end": 0}])"})
        cases << bytes;
    for (const auto& bytes : cases) {
        TranscriptionRecord record;
        record.tagNamesData = record.speakerNamesData = record.meetingSegmentsData = record.channelSegmentsData =
            record.textVersionsData = bytes;
        EXPECT_TRUE(record.tagNames().isEmpty() && record.speakerNames().isEmpty() && !record.meetingSegments() &&
                    !record.channelSegments() && record.persistedVersions().isEmpty())
            << bytes.left(40).constData();
    }
}

TEST(RecordData, NeverThrowsOnRandomBytes) {
    QRandomGenerator random(20260101);
    const QByteArray sound = "[{\"speakerId\":\"a\",\"speakerLabel\":\"b\",\"text\":\"c\",\"channel\":\"microphone\","
                             "\"channelLabel\":\"d\",\"label\":\"e\",\"createdAt\":\"2026-01-01T00:00:00.000Z\","
                             "\"start\":1.5,\"end\":2}]";
    for (int round = 0; round < 20'000; ++round) {
        auto bytes = sound;
        for (int change = random.bounded(1, 6); change > 0; --change)
            bytes[random.bounded(static_cast<int>(bytes.size()))] = static_cast<char>(random.bounded(256));
        if (random.bounded(3) == 0)
            bytes.truncate(random.bounded(static_cast<int>(bytes.size())));
        TranscriptionRecord record;
        record.tagNamesData = record.speakerNamesData = record.meetingSegmentsData = record.channelSegmentsData =
            record.textVersionsData = bytes;
        EXPECT_NO_THROW({
            record.addTag(u"work"_qs);
            (void)record.speakerNames();
            (void)record.channelSegments();
            (void)record.persistedVersions();
            (void)record.meetingPlainText();
        });
        EXPECT_TRUE(record.tagNames().contains(u"work"_qs));
    }
}

TEST(Record, CountsRetriesAndEmptyResults) {
    TranscriptionRecord record;
    record.markRetryAttempt();
    EXPECT_EQ(record.retryCount, 1);
    EXPECT_TRUE(record.lastRetryAt && record.lastRetryAt->isValid());
    EXPECT_FALSE(record.incrementEmptyResultCount());
    EXPECT_TRUE(record.incrementEmptyResultCount());
    record.retryCount = std::numeric_limits<int64_t>::max();
    EXPECT_THROW(record.markRetryAttempt(), std::overflow_error);
    EXPECT_EQ(record.retryCount, std::numeric_limits<int64_t>::max());
}

TEST(Record, KeepsEachTagOnce) {
    TranscriptionRecord record;
    for (const auto* name : {u"work", u"home", u"work", u"Work"})
        record.addTag(QString::fromUtf16(name));
    EXPECT_EQ(record.tagNames(), (QStringList{u"work"_qs, u"home"_qs, u"Work"_qs}));
    record.removeTag(u"work"_qs);
    record.removeTag(u"absent"_qs);
    EXPECT_EQ(record.tagNames(), (QStringList{u"home"_qs, u"Work"_qs}));
}

TEST(Record, AppliesADiarizationWithoutLosingWhatItDoesNotBring) {
    TranscriptionRecord record;
    record.meetingSummary = u"kept"_qs;
    const QList<MeetingSegment> segments{{u"a"_qs, u"A"_qs, u"one"_qs, 0, 1},
                                         {u"a"_qs, u"A"_qs, u"two"_qs, 1, 2},
                                         {u"b"_qs, u"B"_qs, u" "_qs, 2, 3},
                                         {u"b"_qs, u"B"_qs, u"three"_qs, 3, 4},
                                         {u"a"_qs, u"A"_qs, u"four"_qs, 4, 5}};
    record.status = RecordStatus::diarizing;
    record.applyDiarization(segments, u"plain"_qs, 2, std::nullopt, u"act"_qs);
    EXPECT_EQ(record.status, RecordStatus::completed);
    EXPECT_EQ(record.text, u"plain"_qs);
    EXPECT_EQ(record.meetingSummary, u"kept"_qs);
    EXPECT_EQ(record.meetingActionItems, u"act"_qs);
    EXPECT_EQ(record.meetingPlainText(), u"one two\nthree\nfour"_qs);
}

TEST(Record, ShowsATitleOfOneLine) {
    TranscriptionRecord record;
    record.text = u"  first\n line "_qs;
    EXPECT_EQ(record.displayTitle(), u"first line"_qs);
    record.text = u"😀"_qs.repeated(100);
    EXPECT_TRUE(record.displayTitle().endsWith(u'…'));
    EXPECT_TRUE(record.displayTitle().isValidUtf16());
    record.title = QString();
    EXPECT_NE(record.displayTitle(), QString());
    record.title = u"Given"_qs;
    EXPECT_EQ(record.displayTitle(), u"Given"_qs);
}

TEST(Record, FindsItsAudio) {
    const QTemporaryDir folder;
    qputenv("XDG_DATA_HOME", QFile::encodeName(folder.path()));
    TranscriptionRecord record;
    EXPECT_FALSE(record.effectiveAudioId());
    record.audioRetainedId = u"retained"_qs;
    record.pendingAudioId = u"pending"_qs;
    EXPECT_EQ(record.effectiveAudioId(), u"pending"_qs);
    EXPECT_FALSE(record.hasAudioOnDisk());
    writeFile(folder.filePath(u"QuilloSpeech/pending-audio/pending.pcm"_qs), {});
    EXPECT_TRUE(record.hasAudioOnDisk());
    record.migratePendingAudioToRetainedIfNeeded();
    EXPECT_EQ(record.audioRetainedId, u"pending"_qs);
    EXPECT_FALSE(record.pendingAudioId);
    record.migratePendingAudioToRetainedIfNeeded();
    EXPECT_EQ(record.audioRetainedId, u"pending"_qs);
    // An id from a file of unknown origin leads nowhere else.
    for (const auto* id : {u"../pending-audio/pending", u"", u"/etc/passwd", u"."}) {
        record.audioRetainedId = QString::fromUtf16(id);
        EXPECT_FALSE(record.hasAudioOnDisk());
    }
    qunsetenv("XDG_DATA_HOME");
}

} // namespace
} // namespace quillo::test
