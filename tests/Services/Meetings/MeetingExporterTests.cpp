#include "Services/History/HistoryError.h"
#include "Services/Meetings/MeetingExporter.h"
#include "Services/Meetings/RecordExport.h"

#include <gtest/gtest.h>

#include <limits>

namespace quillo::test {
namespace {

MeetingSegment segment(const char* speaker, const char* text, double start, double end) {
    const auto id = QString::fromUtf8(speaker);
    return {id, u"Label "_qs + id, QString::fromUtf8(text), start, end};
}

const MeetingExporter::Names names{{u"a"_qs, u"Änne"_qs}};

TEST(MeetingExporter, WritesEveryFormat) {
    const QList<MeetingSegment> segments{segment("a", "Hello.", 0, 3725.5), segment("b", "Hi.", 360'000.0019, 360'001)};
    EXPECT_EQ(MeetingExporter::exportSRT(segments, names).toStdString(),
              "1\n00:00:00,000 --> 01:02:05,500\nÄnne: Hello.\n\n"
              "2\n100:00:00,001 --> 100:00:01,000\nLabel b: Hi.\n");
    EXPECT_EQ(MeetingExporter::exportVTT(segments, names).toStdString(),
              "WEBVTT\n\n00:00:00.000 --> 01:02:05.500\nÄnne: Hello.\n\n"
              "100:00:00.001 --> 100:00:01.000\nLabel b: Hi.\n");
    EXPECT_EQ(MeetingExporter::exportTXT(segments, names).toStdString(),
              "[Änne - 00:00] Hello.\n\n[Label b - 100:00:00] Hi.");
    EXPECT_EQ(MeetingExporter::exportSRT({}, {}), QString());
    EXPECT_EQ(MeetingExporter::exportVTT({}, {}), u"WEBVTT\n"_qs);
    EXPECT_EQ(MeetingExporter::exportTXT({}, {}), QString());
}

TEST(MeetingExporter, NothingBreaksTheFormat) {
    constexpr auto undefined = std::numeric_limits<double>::quiet_NaN();
    const QList<MeetingSegment> segments{segment("a", "one\n\n2\n00:00:01,000 --> x\r\n<b>R&D", 9, 4),
                                         segment("b", "two", -1, undefined)};
    const MeetingExporter::Names odd{{u"a"_qs, u"A\n\nB-->C"_qs}};
    EXPECT_EQ(MeetingExporter::exportSRT(segments, odd).toStdString(),
              "1\n00:00:09,000 --> 00:00:09,000\nA B→C: one\n2\n00:00:01,000 → x\n<b>R&D\n\n"
              "2\n00:00:00,000 --> 00:00:00,000\nLabel b: two\n");
    EXPECT_EQ(MeetingExporter::exportVTT(segments, odd).toStdString(),
              "WEBVTT\n\n00:00:09.000 --> 00:00:09.000\nA B--&gt;C: one\n2\n00:00:01,000 --&gt; x\n&lt;b>R&amp;D\n\n"
              "00:00:00.000 --> 00:00:00.000\nLabel b: two\n");
}

TEST(RecordExport, AnyRecordHasAText) {
    using recordExport::Format;
    RecordFields fields;
    fields.text = u"Just *dictated*."_qs;
    const TranscriptionRecord dictation(fields);
    EXPECT_EQ(recordExport::exported(dictation, Format::txt), u"Just *dictated*.\n"_qs);
    EXPECT_TRUE(recordExport::exported(dictation, Format::markdown).endsWith(u"\nJust \\*dictated\\*.\n"_qs));
    EXPECT_THROW((void)recordExport::exported(dictation, Format::vtt), HistoryError);

    TranscriptionRecord meeting(fields);
    meeting.setChannelSegments(
        QList<ChannelSegment>{{ChannelSegment::Channel::system, u"Others"_qs, u"Good day."_qs, 1, 2}});
    EXPECT_EQ(recordExport::exported(meeting, Format::txt), u"[Others - 00:01] Good day.\n"_qs);
    meeting.setMeetingSegments(QList<MeetingSegment>{segment("a", "Good day.", 1, 2)});
    meeting.setSpeakerNames(names);
    meeting.meetingSummary = u"Greetings."_qs;
    EXPECT_EQ(recordExport::exported(meeting, Format::txt), u"[Änne - 00:01] Good day.\n"_qs);
    const auto text = recordExport::exported(meeting, Format::markdown);
    EXPECT_TRUE(text.contains(u"\nGreetings.\n\n**Änne** (00:01): Good day.\n"_qs)) << text.toStdString();
}

} // namespace
} // namespace quillo::test
