#include "App/CommandLine/HistoryArguments.h"
#include "App/CommandLine/HistoryText.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace quillo::test {
namespace {

using Verb = HistoryArguments::Verb;

QStringList words(const char* line) { return QString::fromUtf8(line).split(u' ', Qt::SkipEmptyParts); }

TEST(HistoryArguments, AreUnderstood) {
    const std::tuple<const char*, Verb, const char*> cases[] = {{"", Verb::list, ""},
                                                                {"list", Verb::list, ""},
                                                                {"show 1a2b", Verb::show, "1a2b"},
                                                                {"show --text 1a2b", Verb::show, "1a2b"},
                                                                {"copy 1a2b", Verb::copy, "1a2b"},
                                                                {"play 1a2b", Verb::play, "1a2b"},
                                                                {"delete 1a2b", Verb::remove, "1a2b"}};
    for (const auto& [line, verb, id] : cases) {
        const auto arguments = parseHistoryArguments(words(line));
        EXPECT_EQ(arguments.verb, verb) << line;
        EXPECT_EQ(arguments.id.toStdString(), id) << line;
    }
    const auto list = parseHistoryArguments({u"--search"_qs, u"--tag"_qs, u"--tag"_qs, u"a b"_qs, u"--limit"_qs,
                                             u"7"_qs, u"--tag"_qs, u"c"_qs, u"--json"_qs});
    EXPECT_EQ(list.search, u"--tag"_qs);
    EXPECT_EQ(list.tags, (QStringList{u"a b"_qs, u"c"_qs}));
    EXPECT_EQ(list.limit, 7);
    EXPECT_TRUE(list.json);
    EXPECT_LT(parseHistoryArguments(words("--limit all")).limit, 0);
    EXPECT_EQ(parseHistoryArguments(words("retranscribe 1a --language de")).language, u"de"_qs);
}

TEST(HistoryArguments, ThatAreWrongAreExplained) {
    const std::pair<const char*, const char*> cases[] = {{"remove 1a", "no \"quillo history remove\""},
                                                         {"show", "quillo history show ID"},
                                                         {"--limit", "--limit needs a value"},
                                                         {"--limit 0", "from 1 up"},
                                                         {"--limit -3", "from 1 up"},
                                                         {"--limit many", "not \"many\""},
                                                         {"--frob", "\"--frob\""},
                                                         {"list 1a", "\"1a\""},
                                                         {"show 1a 2b", "\"2b\""},
                                                         {"show 1a --limit 3", "\"--limit\""},
                                                         {"delete 1a --language de", "\"--language\""},
                                                         {"show 1a --json --text", "exclude"}};
    for (const auto& [line, expected] : cases)
        EXPECT_THAT([&line = line] { parseHistoryArguments(words(line)); },
                    testing::ThrowsMessage<HistoryUsageError>(testing::HasSubstr(expected)))
            << line;
}

RecordFields meeting() {
    RecordFields fields;
    fields.id = QUuid(u"{1a2b3c4d-0000-4000-8000-000000000001}"_qs);
    fields.createdAt = QDateTime::fromMSecsSinceEpoch(1'790'000'000'123, Qt::UTC);
    fields.text = u"first line\nsecond \x1b[31mline\x07 with \u009b controls"_qs;
    fields.sourceApp = u"An application of a long name"_qs;
    fields.durationMs = 3'725'500;
    fields.wordCount = 6;
    fields.isFavorite = true;
    fields.isMeetingMode = true;
    fields.tagNamesData = encodeTagNames({u"work"_qs, u"ü \x1b"_qs});
    fields.meetingSegmentsData = encodeMeetingSegments(
        {{u"s1"_qs, u"Speaker 1"_qs, u"Hello."_qs, 0, 1}, {u"s2"_qs, u"Speaker 2"_qs, u"Hi."_qs, 3600, 3601}});
    fields.speakerNamesData = QByteArray("{\"s1\": \"Änne\"}");
    fields.meetingSummary = u"Greetings."_qs;
    return fields;
}

RecordSummary summary() {
    const auto fields = meeting();
    RecordSummary summary;
    summary.id = fields.id;
    summary.createdAt = fields.createdAt;
    summary.preview = fields.text;
    summary.sourceApp = *fields.sourceApp;
    summary.status = RecordStatus::pendingTranscription;
    summary.durationMs = fields.durationMs;
    summary.tagNames = decodeTagNames(*fields.tagNamesData);
    summary.isFavorite = true;
    return summary;
}

bool hasControls(const QString& text) {
    return std::any_of(text.begin(), text.end(),
                       [](QChar c) { return c.category() == QChar::Other_Control && c != u'\n' && c != u'\t'; });
}

TEST(HistoryText, IsOneLineForEachRecord) {
    const auto text = historyText::list({summary(), RecordSummary()}, QTimeZone::utc());
    const auto lines = text.split(u'\n');
    ASSERT_EQ(lines.size(), 3);
    EXPECT_EQ(lines.at(0), u"1a2b3c4d  2026-09-21 14:13  1:02:05  An application of…  ★ "
                           "(pending_transcription) first line second [31mline with controls  #work  #ü"_qs);
    EXPECT_FALSE(hasControls(text));
    auto emoji = summary();
    emoji.title = u"a"_qs + u"😀"_qs.repeated(100);
    EXPECT_TRUE(historyText::list({emoji}, QTimeZone::utc()).isValidUtf16());
}

TEST(HistoryText, ShowsAMeetingWithItsSpeakers) {
    const TranscriptionRecord record(meeting());
    const auto text = historyText::details(record, QTimeZone::utc());
    EXPECT_TRUE(text.contains(u"created:     2026-09-21 14:13:20\n"_qs)) << text.toStdString();
    EXPECT_TRUE(text.contains(u"[00:00] Änne: Hello.\n[1:00:00] Speaker 2: Hi.\n"_qs)) << text.toStdString();
    EXPECT_TRUE(text.endsWith(u"\nSummary\nGreetings.\n"_qs)) << text.toStdString();
    EXPECT_FALSE(hasControls(text));
}

TEST(HistoryText, IsJsonThatKeepsItsKeys) {
    const auto record = std::make_shared<TranscriptionRecord>(meeting());
    const auto list = nlohmann::json::parse(historyText::jsonList({record, std::make_shared<TranscriptionRecord>()}));
    ASSERT_EQ(list.size(), 2U);
    const auto& object = list.at(0);
    EXPECT_EQ(object.at("id"), "1a2b3c4d-0000-4000-8000-000000000001");
    EXPECT_EQ(object.at("created_at"), "2026-09-21T14:13:20.123Z");
    EXPECT_EQ(object.at("text"), record->text.toStdString());
    EXPECT_EQ(object.at("tags").at(0), "work");
    for (const auto* key : {"status", "title", "language", "source_app", "duration_ms", "word_count", "is_favorite",
                            "is_meeting", "speaker_count", "audio_id"})
        EXPECT_TRUE(object.contains(key)) << key;
    EXPECT_TRUE(list.at(1).at("title").is_null());
    EXPECT_EQ(nlohmann::json::parse(historyText::jsonList({})).size(), 0U);
    const auto details = nlohmann::json::parse(historyText::jsonDetails(*record));
    EXPECT_EQ(details.at("segments").at(0).at("speaker"), "Änne");
    EXPECT_EQ(details.at("segments").at(1).at("start"), 3600.0);
    EXPECT_EQ(details.at("summary"), "Greetings.");
}

} // namespace
} // namespace quillo::test
