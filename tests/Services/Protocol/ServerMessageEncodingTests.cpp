#include "Services/Protocol/ServerMessageEncoding.h"

#include <gtest/gtest.h>

using namespace quillo;

namespace {

struct Case {
    const char* name;
    QString frame;
    const char* expected;
};

SessionRequest fullRequest() {
    return {.languages = {u"en"_qs, u"de"_qs},
            .appContext = u"Editor \"main\"\n"_qs,
            .audioSources = QStringList{u"microphone"_qs, u"system"_qs},
            .mode = std::nullopt,
            .commands = std::vector<VoiceCommandEntry>{{u"fix it"_qs, u"Correct the text"_qs, u"ai"_qs}},
            .enhancedTranscription = true,
            .enhancedConsentAt = u"2026-01-02T03:04:05Z"_qs,
            .clientRecordingId = u"0198-a"_qs};
}

TEST(ServerMessageEncoding, KeysStandInTheOrderOfTheProtocol) {
    SessionRequest oneSource{.audioSources = QStringList{u"microphone"_qs}};
    SessionRequest ownMode = fullRequest();
    ownMode.mode = u"file"_qs;
    ownMode.commands = std::vector<VoiceCommandEntry>();
    const std::vector<Case> cases{
        {"everything", encoding::startSession(fullRequest(), u"1.2"_qs),
         R"({"type":"start_session","languages":["en","de"],"mode":"meeting_streaming","audio_format":"linear16",)"
         R"("sample_rate":16000,"channels":1,"app_context":"Editor \"main\"\n","audio_sources":["microphone","system"],)"
         R"("commands":[{"trigger":"fix it","prompt":"Correct the text","type":"ai"}],"enhanced_transcription":true,)"
         R"("enhanced_consent_at":"2026-01-02T03:04:05Z","client_version":"1.2","client_recording_id":"0198-a"})"},
        {"nothing optional", encoding::startSession({}, u"1.2"_qs),
         R"({"type":"start_session","languages":[],"mode":"streaming","audio_format":"linear16","sample_rate":16000,)"
         R"("channels":1,"enhanced_transcription":false,"client_version":"1.2"})"},
        {"one source", encoding::startSession(oneSource, u"1"_qs),
         R"({"type":"start_session","languages":[],"mode":"streaming","audio_format":"linear16","sample_rate":16000,)"
         R"("channels":1,"audio_sources":["microphone"],"enhanced_transcription":false,"client_version":"1"})"},
        {"the caller's mode", encoding::startSession(ownMode, u"1"_qs),
         R"({"type":"start_session","languages":["en","de"],"mode":"file","audio_format":"linear16",)"
         R"("sample_rate":16000,"channels":1,"app_context":"Editor \"main\"\n","audio_sources":["microphone","system"],)"
         R"("commands":[],"enhanced_transcription":true,)"
         R"("enhanced_consent_at":"2026-01-02T03:04:05Z","client_version":"1","client_recording_id":"0198-a"})"},
        {"audio", encoding::audioChunk(QByteArray::fromHex("00ff7f80fb")),
         R"({"type":"audio_chunk","data":"AP9/gPs="})"},
        {"end", encoding::endSession(), R"({"type":"end_session"})"},
        {"switch", encoding::switchToMeeting(12.5, {u"microphone"_qs, u"system"_qs}),
         R"({"type":"switch_to_meeting","switch_timestamp":12.5,"audio_sources":["microphone","system"]})"},
        {"status", encoding::systemAudioStatus(u"grüße 😀"_qs),
         "{\"type\":\"system_audio_status\",\"status\":\"grüße 😀\"}"},
    };
    for (const auto& [name, frame, expected] : cases)
        EXPECT_EQ(frame.toStdString(), expected) << name;
}

TEST(ServerMessageEncoding, LoneSurrogatesStayValidJson) {
    const auto frame = encoding::systemAudioStatus(QString(QChar(0xd800)));
    EXPECT_TRUE(frame.isValidUtf16()) << frame.toStdString();
    EXPECT_TRUE(frame.endsWith(u"\"}"));
}

} // namespace
