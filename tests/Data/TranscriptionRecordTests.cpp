#include "Data/Models/TranscriptionRecord.h"

#include <QDir>
#include <QFile>
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
    const QList<MeetingSegment> meeting{
        {QStringLiteral("s1"), QStringLiteral("Änne \"A\""), QStringLiteral("你好\n"), 0.25, 2},
        {QStringLiteral("s2"), QString(), QStringLiteral("👋"), 2, 3}};
    const QList<ChannelSegment> channels{
        {ChannelSegment::Channel::system, QStringLiteral("Others"), QStringLiteral("x"), 1, 2}};
    const QList<PersistedTextVersion> versions{
        {QStringLiteral("old"), QStringLiteral("Formal"), QDateTime::fromMSecsSinceEpoch(1'790'000'000'123, Qt::UTC)}};
    record.setMeetingSegments(meeting);
    record.setChannelSegments(channels);
    record.saveVersions(versions);
    record.setSpeakerNames({{QStringLiteral("s1"), QStringLiteral("Änne")}});
    EXPECT_EQ(record.meetingSegments(), meeting);
    EXPECT_EQ(record.channelSegments(), channels);
    EXPECT_EQ(record.persistedVersions(), versions);
    EXPECT_EQ(record.speakerNames().value(QStringLiteral("s1")), QStringLiteral("Änne"));
    // Not a number in one time must not cost the whole meeting.
    auto odd = meeting;
    odd[1].end = std::numeric_limits<double>::quiet_NaN();
    record.setMeetingSegments(odd);
    ASSERT_TRUE(record.meetingSegments());
    EXPECT_EQ(record.meetingSegments()->at(0), meeting.at(0));
}

TEST(RecordData, ThatCannotBeDecodedReadsAsEmpty) {
    const QByteArray cases[] = {"",
                                "null",
                                "{",
                                "[1]",
                                "[\"a\", 1]",
                                "{\"a\": 1}",
                                "[{\"text\": \"x\"}]",
                                "[{\"channel\": 7, \"channelLabel\": \"\", \"text\": \"\", \"start\": 0, \"end\": 0}]",
                                "[1e999]",
                                "\xff\xfe[]",
                                QByteArray("[\"\0\"]", 5),
                                QByteArray(200'000, '['),
                                "\"\\ud800\""};
    for (const auto& bytes : cases) {
        TranscriptionRecord record;
        record.tagNamesData = record.speakerNamesData = record.meetingSegmentsData = record.channelSegmentsData =
            record.textVersionsData = bytes;
        EXPECT_TRUE(record.tagNames().isEmpty()) << bytes.left(40).constData();
        EXPECT_TRUE(record.speakerNames().isEmpty()) << bytes.left(40).constData();
        EXPECT_FALSE(record.meetingSegments()) << bytes.left(40).constData();
        EXPECT_FALSE(record.channelSegments()) << bytes.left(40).constData();
        EXPECT_TRUE(record.persistedVersions().isEmpty()) << bytes.left(40).constData();
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
            record.addTag(QStringLiteral("work"));
            (void)record.speakerNames();
            (void)record.channelSegments();
            (void)record.persistedVersions();
            (void)record.meetingPlainText();
        });
        EXPECT_TRUE(record.tagNames().contains(QStringLiteral("work")));
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
    EXPECT_EQ(record.tagNames(), (QStringList{QStringLiteral("work"), QStringLiteral("home"), QStringLiteral("Work")}));
    record.removeTag(QStringLiteral("work"));
    record.removeTag(QStringLiteral("absent"));
    EXPECT_EQ(record.tagNames(), (QStringList{QStringLiteral("home"), QStringLiteral("Work")}));
}

TEST(Record, AppliesADiarizationWithoutLosingWhatItDoesNotBring) {
    TranscriptionRecord record;
    record.meetingSummary = QStringLiteral("kept");
    const QList<MeetingSegment> segments{{QStringLiteral("a"), QStringLiteral("A"), QStringLiteral("one"), 0, 1},
                                         {QStringLiteral("a"), QStringLiteral("A"), QStringLiteral("two"), 1, 2},
                                         {QStringLiteral("b"), QStringLiteral("B"), QStringLiteral(" "), 2, 3},
                                         {QStringLiteral("b"), QStringLiteral("B"), QStringLiteral("three"), 3, 4},
                                         {QStringLiteral("a"), QStringLiteral("A"), QStringLiteral("four"), 4, 5}};
    record.status = RecordStatus::diarizing;
    record.applyDiarization(segments, QStringLiteral("plain"), 2, std::nullopt, QStringLiteral("act"));
    EXPECT_EQ(record.status, RecordStatus::completed);
    EXPECT_EQ(record.text, QStringLiteral("plain"));
    EXPECT_EQ(record.meetingSummary, QStringLiteral("kept"));
    EXPECT_EQ(record.meetingActionItems, QStringLiteral("act"));
    EXPECT_EQ(record.meetingPlainText(), QStringLiteral("one two\nthree\nfour"));
}

TEST(Record, ShowsATitleOfOneLine) {
    TranscriptionRecord record;
    record.text = QStringLiteral("  first\n line ");
    EXPECT_EQ(record.displayTitle(), QStringLiteral("first line"));
    record.text = QStringLiteral("😀").repeated(100);
    EXPECT_TRUE(record.displayTitle().endsWith(u'…'));
    EXPECT_TRUE(record.displayTitle().isValidUtf16());
    record.title = QString();
    EXPECT_NE(record.displayTitle(), QString());
    record.title = QStringLiteral("Given");
    EXPECT_EQ(record.displayTitle(), QStringLiteral("Given"));
}

TEST(Record, FindsItsAudio) {
    const QTemporaryDir folder;
    qputenv("XDG_DATA_HOME", QFile::encodeName(folder.path()));
    TranscriptionRecord record;
    EXPECT_FALSE(record.effectiveAudioId());
    record.audioRetainedId = QStringLiteral("retained");
    record.pendingAudioId = QStringLiteral("pending");
    EXPECT_EQ(record.effectiveAudioId(), QStringLiteral("pending"));
    EXPECT_FALSE(record.hasAudioOnDisk());
    QDir().mkpath(folder.filePath(QStringLiteral("QuilloSpeech/pending-audio")));
    QFile audio(folder.filePath(QStringLiteral("QuilloSpeech/pending-audio/pending.pcm")));
    ASSERT_TRUE(audio.open(QIODevice::WriteOnly));
    EXPECT_TRUE(record.hasAudioOnDisk());
    record.migratePendingAudioToRetainedIfNeeded();
    EXPECT_EQ(record.audioRetainedId, QStringLiteral("pending"));
    EXPECT_FALSE(record.pendingAudioId);
    record.migratePendingAudioToRetainedIfNeeded();
    EXPECT_EQ(record.audioRetainedId, QStringLiteral("pending"));
    // An id from a file of unknown origin leads nowhere else.
    for (const auto* id : {u"../pending-audio/pending", u"", u"/etc/passwd", u"."}) {
        record.audioRetainedId = QString::fromUtf16(id);
        EXPECT_FALSE(record.hasAudioOnDisk());
    }
    qunsetenv("XDG_DATA_HOME");
}

} // namespace
} // namespace quillo::test
