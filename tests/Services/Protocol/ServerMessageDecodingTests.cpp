#include "Services/Protocol/ServerMessageDecoding.h"

#include <gmock/gmock.h>

using namespace quillo;
using testing::HasSubstr;

namespace {

struct Decoded {
    ServerMessage message;
    SessionTexts texts;
    std::string lines;
    QStringList faults;
};

Decoded decode(const QByteArray& frame, SessionTexts texts = {}) {
    const auto response = ServerResponse::decode(frame);
    if (!response)
        throw std::runtime_error("not decoded: " + frame.left(200).toStdString());
    QStringList lines;
    auto message = decodeServerMessage(*response, texts, lines);
    return {std::move(message), std::move(texts), lines.join(u'\n').toStdString(), response->typeFaults};
}

TEST(ServerMessageDecoding, EachTypeBecomesItsEvent) {
    const TranscriptionResult result{u"hello"_qs, u"en"_qs, 0.5, 1, 900, u"A"_qs, u"system"_qs, 1.5, 2.0};
    const std::vector<TranscriptSegment> segments{{u"hi"_qs, u"A"_qs, u"microphone"_qs, 0.5, 1}};
    const char* const transcript =
        R"("data":{"text":"hello","language":"en","confidence":0.5,"word_count":1,"duration_ms":900,"speaker":"A",)"
        R"("source_channel":"system","segment_start":1.5,"segment_end":2}})";
    const std::vector<std::pair<std::string, ServerMessage>> cases{
        {R"({"type":"connected"})", server::Connected{}},
        {R"({"type":"session_started","data":{"session_id":"s1"}})", server::SessionStarted{u"s1"_qs}},
        {std::string(R"({"type":"partial_transcript",)") + transcript, server::PartialTranscript{result}},
        {std::string(R"({"type":"final_transcript",)") + transcript, server::FinalTranscript{result}},
        {R"({"type":"final_transcript","data":{"text":null}})", server::FinalTranscript{}},
        {R"({"type":"error","data":{"code":"NO_SESSION","message":"none"}})",
         server::Error{u"NO_SESSION"_qs, u"none"_qs}},
        {R"({"type":"error"})", server::Error{u"UNKNOWN"_qs, u"Unknown error"_qs}},
        {R"({"type":"language_detected","data":{"language":"de","confidence":1}})",
         server::LanguageDetected{u"de"_qs, 1}},
        {R"({"type":"command_detected","data":{"command_text":"fix","command_type":"ai"}})",
         server::CommandDetected{u"fix"_qs, u"ai"_qs}},
        {R"({"type":"command_processing"})", server::CommandProcessing{}},
        {R"({"type":"command_result","data":{"processed_text":"p","original_text":"o","preset_name":"n"}})",
         server::CommandResult{u"p"_qs, u"o"_qs, u"n"_qs}},
        {R"({"type":"meeting_mode_activated","data":{"timestamp":3.25}})", server::MeetingModeActivated{3.25}},
        {R"({"type":"meeting_text_update","data":{"text":"t","speaker":"B","channel":"system"}})",
         server::MeetingTextUpdate{u"t"_qs, u"B"_qs, u"system"_qs}},
        {R"({"type":"diarization_complete","data":{"task_id":"t","segments":[{"text":"hi","speaker":"A",)"
         R"("source_channel":"microphone","segment_start":0.5,"segment_end":1}],"labeled_text":"A: hi",)"
         R"("speaker_count":1,"summary":"s","action_items":"a"}})",
         server::DiarizationComplete{u"t"_qs, segments, u"A: hi"_qs, 1, u"s"_qs, u"a"_qs}},
        {R"({"type":"diarization_failed","data":{"task_id":"t"}})",
         server::DiarizationFailed{u"t"_qs, u"Diarization failed"_qs}},
        {R"({"type":"diarization_failed","data":{"task_id":"t","error":"no model"}})",
         server::DiarizationFailed{u"t"_qs, u"no model"_qs}},
        {R"({"type":"pong","data":{}})", server::Pong{}},
        {R"({"type":"weather"})", server::Unknown{u"weather"_qs}},
    };
    for (const auto& [frame, expected] : cases)
        EXPECT_TRUE(decode(QByteArray::fromStdString(frame)).message == expected) << frame;
    EXPECT_EQ(decode(R"({"type":"weather"})").lines, "[WebSocket] ❓ Unknown message type: weather");
}

TEST(ServerMessageDecoding, TheFinalTextIsChosenByTheRule) {
    struct Case {
        const char* data;
        const char* text;
        const char* beforeCommand;
        const char* beforeCleanup;
        const char* line;
    };
    // The finals of the session had been "so far".
    const std::vector<Case> cases{
        {R"({"command_applied":true,"cleanup_applied":true,"processed_text":"new","original_text":"old","text":"raw"})",
         "new", "old", "", "[WebSocket] 🤖 Command applied, using processed text (len=3), original (len=3)"},
        {R"({"command_applied":true,"processed_text":"new","text":"raw"})", "new", "raw", "", "original (len=3)"},
        {R"({"command_applied":true,"text":"raw"})", "raw", "", "", ""},
        {R"({"cleanup_applied":true,"processed_text":"tidy","text":"raw"})", "tidy", "", "raw",
         "[WebSocket] 🧹 Cleanup applied, using processed text (len=4)"},
        {R"({"cleanup_applied":true,"processed_text":"tidy"})", "tidy", "", "so far", "len=4"},
        {R"({"processed_text":"unasked","text":"raw"})", "raw", "", "", ""},
        {R"({"text":"raw"})", "raw", "", "", ""},
        {R"({"text":""})", "so far", "", "", ""},
        {R"({})", "so far", "", "", ""},
    };
    for (const auto& test : cases) {
        const auto decoded = decode(QByteArray(R"({"type":"session_ended","data":)") + test.data + "}",
                                    {.accumulatedText = u"so far"_qs});
        EXPECT_EQ(std::get<server::SessionEnded>(decoded.message).text.toStdString(), test.text) << test.data;
        EXPECT_EQ(decoded.texts.originalTextBeforeCommand.toStdString(), test.beforeCommand) << test.data;
        EXPECT_EQ(decoded.texts.rawTextBeforeCleanup.toStdString(), test.beforeCleanup) << test.data;
        EXPECT_THAT(decoded.lines, HasSubstr(test.line)) << test.data;
    }
}

TEST(ServerMessageDecoding, NoTextIsLogged) {
    for (const char* type : {"partial_transcript", "final_transcript", "session_ended", "meeting_text_update"})
        EXPECT_THAT(
            decode(QByteArray(R"({"type":")") + type + R"(","data":{"text":"secret","plain_text":"secret"}})").lines,
            testing::Not(HasSubstr("secret")))
            << type;
}

TEST(ServerMessageDecoding, TheEndOfAMeetingIsKept) {
    const auto decoded = decode(
        R"({"type":"session_ended","data":{"text":"raw","plain_text":"plain","labeled_text":"A: plain","speaker_count":2,)"
        R"("segments":[{"text":"a","speaker":"A","segment_start":1,"segment_end":2}],)"
        R"("channels":{"system":{"segments":[{"text":"b"}]},"microphone":[{"text":"c","source_channel":"mic"}],"note":null},)"
        R"("mic_only_fallback":true,"diarization_task_id":"d","diarization_status":"running","summary":"s",)"
        R"("action_items":"a","metrics_id":"m","total_words":12.0,"language_mismatch":{"configured_language":"en",)"
        R"("detected_language":"de","detected_language_name":"German","confidence":0.75}}})");
    const auto& texts = decoded.texts;
    EXPECT_EQ(texts.textForInjection(), u"plain");
    EXPECT_EQ(texts.lastLabeledText, u"A: plain");
    EXPECT_EQ(texts.lastSpeakerCount, 2);
    EXPECT_EQ(texts.lastMeetingSegments, (std::vector<TranscriptSegment>{{u"a"_qs, u"A"_qs, {}, 1, 2}}));
    EXPECT_EQ(texts.lastChannelSegments,
              (std::vector<TranscriptSegment>{{u"b"_qs, {}, u"system"_qs, 0, 0}, {u"c"_qs, {}, u"mic"_qs, 0, 0}}));
    EXPECT_TRUE(texts.lastMicOnlyFallback);
    EXPECT_EQ(texts.lastDiarizationTaskId, u"d"_qs);
    EXPECT_EQ(texts.lastDiarizationStatus, u"running"_qs);
    EXPECT_EQ(texts.lastMeetingSummary, u"s");
    EXPECT_EQ(texts.lastMeetingActionItems, u"a");
    const LanguageMismatch mismatch{u"en"_qs, u"de"_qs, u"German"_qs, 0.75};
    EXPECT_EQ(texts.lastLanguageMismatch, mismatch);
    const auto& ended = std::get<server::SessionEnded>(decoded.message);
    EXPECT_EQ(ended.languageMismatch, mismatch);
    EXPECT_EQ(ended.metricsId, u"m"_qs);
    EXPECT_EQ(ended.totalWords, 12);
    EXPECT_THAT(decoded.lines, HasSubstr("⚠️ Language mismatch: configured=en, detected=de, confidence=0.75"));
    // The next session of a dictation must not inherit the meeting.
    const auto next = decode(R"({"type":"session_ended","data":{"text":"x"}})", texts);
    EXPECT_EQ(next.texts.plainTextForInjection, u"");
    EXPECT_TRUE(next.texts.lastMeetingSegments.empty());
}

TEST(ServerMessageDecoding, TheBestTextIsTheSurestOneThereIs) {
    SessionTexts texts;
    texts.savedTextFromDisconnect = u"saved"_qs;
    EXPECT_EQ(texts.bestAvailableText(), u"saved");
    texts = decode(R"({"type":"partial_transcript","data":{"text":"part"}})", texts).texts;
    EXPECT_EQ(texts.bestAvailableText(), u"part");
    texts.plainTextForInjection = u"plain"_qs;
    EXPECT_EQ(texts.bestAvailableText(), u"plain");
    for (const auto* const piece : {"one", "", "two", " three"})
        texts = decode(QByteArray(R"({"type":"final_transcript","data":{"text":")") + piece + "\"}}", texts).texts;
    EXPECT_EQ(texts.bestAvailableText(), u"one two three");
    EXPECT_EQ(texts.textForInjection(), u"plain");
}

TEST(ServerMessageDecoding, ValuesOfAWrongTypeReadAsUnset) {
    const auto decoded =
        decode(R"({"type":"final_transcript","data":{"text":5,"language":"en","confidence":"high",)"
               R"("word_count":1.5,"duration_ms":1e300,"speaker":["A"],"segments":{},"channels":[1]}})");
    const TranscriptionResult expected{.text = {}, .language = u"en"_qs};
    EXPECT_EQ(std::get<server::FinalTranscript>(decoded.message).result, expected);
    EXPECT_EQ(decoded.faults, QStringList({u"text: expected string"_qs, u"confidence: expected number"_qs,
                                           u"word_count: expected integer"_qs, u"duration_ms: expected integer"_qs,
                                           u"speaker: expected string"_qs, u"segments: expected array"_qs,
                                           u"channels: expected object"_qs}));
    EXPECT_EQ(decode(R"({"type":"pong","data":"x"})").faults, QStringList(u"data: expected object"_qs));
}

TEST(ServerMessageDecoding, WhatIsNoMessageIsRefused) {
    const auto deep = [](qsizetype levels) -> QByteArray {
        return R"({"type":"pong","x":)" + QByteArray(levels, '[') + QByteArray(levels, ']') + "}";
    };
    QByteArrayList refused{deep(1'000'000), QByteArray(ServerResponse::longestFrame + 1, ' ')};
    for (const auto* const frame :
         {"", "{", "[]", "null", "\"connected\"", "{}", R"({"type":7})", R"({"type":"pong"} x)", "\xff\xfe"})
        refused << frame;
    for (const auto& frame : refused)
        EXPECT_FALSE(ServerResponse::decode(frame)) << frame.left(40).toStdString();
    EXPECT_TRUE(ServerResponse::decode(deep(20)));
    // Brackets inside a text do not count as nesting.
    EXPECT_TRUE(ServerResponse::decode(R"({"type":"pong","x":"\")" + QByteArray(100, '[') + "\"}"));
}

} // namespace
