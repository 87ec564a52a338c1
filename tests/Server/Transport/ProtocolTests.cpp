#include "Transport/ProtocolMessages.h"

#include <gtest/gtest.h>

using namespace quillo::server;

namespace {

TEST(ServerProtocol, NamesWhatIsWrongWithAMessage) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "JSON"},
        {"{", "JSON"},
        {"[]", "object"},
        {"7", "object"},
        {"{}", "type"},
        {R"({"type": 3})", "type"},
        {R"({"type": "audio_chunk"})", "data"},
        {R"({"type": "audio_chunk", "data": 1})", "data"},
        {R"({"type": "audio_chunk", "data": "AAE"})", "base64"},
        {R"({"type": "audio_chunk", "data": "AA=="})", "16-bit"},
        {R"({"type": "start_session", "languages": "en"})", "languages"},
        {R"({"type": "start_session", "languages": [1]})", "languages"},
        {R"({"type": "start_session", "audio_format": "opus"})", "audio_format"},
        {R"({"type": "start_session", "sample_rate": 44100})", "sample_rate"},
        {R"({"type": "start_session", "channels": 2})", "channels"},
        {R"({"type": "start_session", "enhanced_transcription": "yes"})", "enhanced_transcription"},
        {R"({"type": "system_audio_status", "status": {}})", "status"},
    };
    for (const auto& [frame, reason] : cases) {
        const auto message = parseClientMessage(frame);
        const auto* invalid = std::get_if<message::Invalid>(&message);
        ASSERT_TRUE(invalid) << frame;
        EXPECT_NE(invalid->reason.find(reason), std::string::npos) << frame << ": " << invalid->reason;
    }
}

TEST(ServerProtocol, ReadsSamplesInLittleEndianOrder) {
    const auto message = parseClientMessage(R"({"type": "audio_chunk", "data": "AQD//wCA"})");
    ASSERT_TRUE(std::holds_alternative<message::AudioChunk>(message));
    EXPECT_EQ(std::get<message::AudioChunk>(message).samples, (std::vector<int16_t>{1, -1, -32768}));
}

TEST(ServerProtocol, TakesAStartWithTheLeastAndTheMost) {
    EXPECT_TRUE(std::holds_alternative<message::StartSession>(parseClientMessage(R"({"type": "start_session"})")));
    const auto full = parseClientMessage(
        R"({"type":"start_session","languages":["en","de"],"mode":"meeting_streaming","audio_format":"linear16",
        "sample_rate":16000,"channels":1,"app_context":"Editor","audio_sources":["microphone","system"],
        "commands":[{"trigger":"t","prompt":"p","type":"x"}],"enhanced_transcription":true,
        "enhanced_consent_at":null,"client_version":"1.0","client_recording_id":"7"})");
    const auto* start = std::get_if<message::StartSession>(&full);
    ASSERT_TRUE(start);
    EXPECT_EQ(start->options.languages, (std::vector<std::string>{"en", "de"}));
    EXPECT_TRUE(start->options.enhanced);
    EXPECT_TRUE(start->isMeeting);
    EXPECT_TRUE(std::holds_alternative<message::Unknown>(parseClientMessage(R"({"type": "from_the_future"})")));
}

} // namespace
