#include "FileFixture.h"

using namespace quillo::test;
using namespace quillo::server;
using namespace std::chrono_literals;

namespace {

/// Three words a second, a piece each second.
constexpr const char* talk = R"({"words":["one","two","three"],"words_per_second":3,"words_per_final":3})";
constexpr const char* bothSources = R"(["microphone","system"])";

class MeetingClient : public StreamClient {
public:
    MeetingClient(const TestServer& server, const QString& token) : StreamClient(server.streamUrl(token)) {}

    void startMode(const char* mode, const char* sources) {
        next("connected");
        send((std::string(R"({"type":"start_session","languages":["en"],"client_recording_id":"r 1","mode":")") + mode +
              R"(","audio_sources":)" + sources + "}")
                 .c_str());
        next("session_started");
    }
    void say(int seconds) {
        for (int i = 0; i < seconds * 10; ++i)
            sendAudio(100);
    }
    void switchToMeeting() {
        send(R"({"type":"switch_to_meeting","switch_timestamp":123.5,"audio_sources":["microphone","system"]})");
    }
    void setStatus(const std::string& status) {
        send((R"({"type":"system_audio_status","status":")" + status + "\"}").c_str());
    }
    /// The type of the message that came last.
    [[nodiscard]] std::string lastType() const { return messages.back().value("type", ""); }
};

TEST(MeetingStream, AMeetingFromItsStartToItsSpeakers) {
    const TestServer server(talk);
    const QString token = server.token();
    MeetingClient client(server, token);
    client.startMode("meeting_streaming", bothSources);
    EXPECT_EQ(client.next("meeting_mode_activated").dump(), R"({"timestamp":0.0})");
    client.say(2);
    EXPECT_EQ(client.next("meeting_text_update").dump(),
              R"({"text":"one two three","segment_start":0.0,"segment_end":1.0})");
    EXPECT_EQ(client.next("meeting_text_update")["segment_start"], 1.0) << "before the end";
    client.end();
    const Json ended = client.next("session_ended");
    const std::string text = "one two three one two three";
    EXPECT_EQ(ended["text"], text);
    EXPECT_EQ(ended["plain_text"], text);
    EXPECT_EQ(ended["labeled_text"], "one two three\none two three");
    EXPECT_EQ(ended["segments"].dump(), R"([{"text":"one two three","segment_start":0.0,"segment_end":1.0},)"
                                        R"({"text":"one two three","segment_start":1.0,"segment_end":2.0}])");
    EXPECT_EQ(ended["channels"].dump(), "{}");
    EXPECT_EQ(ended["speaker_count"], 0);
    EXPECT_FALSE(ended["mic_only_fallback"].get<bool>());
    EXPECT_EQ(ended["diarization_status"], "processing");
    EXPECT_EQ(ended["summary"], "");
    EXPECT_EQ(ended["action_items"], "");

    const Json complete = client.next("diarization_complete");
    EXPECT_EQ(complete["task_id"], ended["diarization_task_id"]);
    EXPECT_EQ(complete["labeled_text"], "Speaker 1: " + text);
    EXPECT_EQ(complete["speaker_count"], 1);
    EXPECT_EQ(complete["segments"].dump(),
              R"([{"text":")" + text + R"(","speaker":"Speaker 1","segment_start":0.0,"segment_end":2.0}])");
    EXPECT_EQ(complete["summary"], "");
    for (const std::string& path : {"/transcription/diarization/" + complete["task_id"].get<std::string>(),
                                    std::string("/transcription/recording/r%201/diarization")}) {
        const auto polled = getAs(server, token, path.c_str()).body;
        EXPECT_EQ(polled["status"], "completed") << path;
        EXPECT_EQ(polled["plain_text"], text);
        EXPECT_EQ(polled["segments"][0]["speaker_label"], "Speaker 1");
        EXPECT_EQ(polled["duration_ms"], 2000);
        EXPECT_EQ(polled["stt_provider"], "scripted");
    }
    EXPECT_EQ(spooledFiles(server), 0U);
    EXPECT_EQ(client.count("error"), 0);
}

TEST(MeetingStream, ADictationThatBecomesAMeetingKeepsItsBeginning) {
    const TestServer server(talk);
    MeetingClient client(server, server.token());
    client.startMode("streaming", R"(["microphone"])");
    client.say(2);
    client.next("final_transcript");
    client.next("final_transcript");
    EXPECT_EQ(client.count("meeting_text_update"), 0);
    client.switchToMeeting();
    EXPECT_EQ(client.next("meeting_mode_activated").dump(), R"({"timestamp":2.0,"switch_timestamp":123.5})");
    client.say(1);
    client.end();
    EXPECT_EQ(client.next("meeting_text_update")["segment_start"], 2.0);
    const Json ended = client.next("session_ended");
    EXPECT_EQ(ended["segments"].size(), 3U);
    EXPECT_EQ(ended["channels"]["microphone"]["segments"].size(), 2U) << "what was dictated";
    EXPECT_FALSE(ended["mic_only_fallback"].get<bool>());
    const Json segments = client.next("diarization_complete")["segments"];
    ASSERT_EQ(segments.size(), 2U);
    EXPECT_EQ(segments[0]["source_channel"], "microphone");
    EXPECT_EQ(segments[1]["segment_end"], 3.0);
}

struct Sides {
    const char* sources;
    std::vector<std::string> statuses; ///< one before each second of speech
    bool isMicrophoneOnly;
    std::string known; ///< 'm' for each second whose channel is known to be the microphone, else '-'
};

TEST(MeetingStream, KnowsTheChannelWhereTheMicrophoneWasAlone) {
    const Sides cases[] = {
        {bothSources, {"", "", ""}, false, "---"},
        {"null", {"", "", ""}, false, "---"},
        {R"(["microphone"])", {"", "", ""}, true, "mmm"},
        {R"(["microphone"])", {"", "active", "active"}, false, "m--"},
        {bothSources, {"", "paused", "active"}, false, "-m-"},
        {bothSources, {"active", "ended", "of_tomorrow"}, false, "-mm"},
        {bothSources, {"unavailable", "", ""}, true, "mmm"},
    };
    const TestServer server(talk, {.maxSessionsPerUser = 100});
    for (const auto& [sources, statuses, isMicrophoneOnly, known] : cases) {
        const std::string name = std::string(sources) + " " + statuses[1];
        MeetingClient client(server, server.token());
        client.startMode("meeting_streaming", sources);
        std::string heard;
        for (const auto& status : statuses) {
            if (!status.empty())
                client.setStatus(status);
            client.say(1);
            heard += client.next("meeting_text_update").value("channel", "-")[0];
        }
        client.end();
        EXPECT_EQ(heard, known) << name;
        const Json ended = client.next("session_ended");
        EXPECT_EQ(ended["mic_only_fallback"], isMicrophoneOnly) << name;
        EXPECT_EQ(ended["channels"].empty(), known.find('m') == std::string::npos) << name;
        EXPECT_EQ(client.count("error"), 0) << name;
    }
}

TEST(MeetingStream, MistakesAreAnsweredAndNothingIsLost) {
    const TestServer server(talk);
    MeetingClient client(server, server.token());
    client.next("connected");
    client.switchToMeeting();
    EXPECT_EQ(client.nextError(), "NO_SESSION");
    client.start();
    client.next("session_started");
    for (const char* frame : {R"({"type":"switch_to_meeting","switch_timestamp":"now"})",
                              R"({"type":"switch_to_meeting","audio_sources":"system"})",
                              R"({"type":"switch_to_meeting","audio_sources":[{}]})"}) {
        client.send(frame);
        EXPECT_EQ(client.nextError(), "INVALID_MESSAGE") << frame;
    }
    client.send(R"({"type":"switch_to_meeting"})");
    client.next("meeting_mode_activated");
    client.switchToMeeting();
    EXPECT_EQ(client.nextError(), "MEETING_EXISTS");
    client.start();
    EXPECT_EQ(client.nextError(), "SESSION_EXISTS");
    client.say(1);
    client.end();
    EXPECT_EQ(client.next("session_ended")["plain_text"], "one two three");
    client.next("diarization_complete");
    client.switchToMeeting();
    EXPECT_EQ(client.nextError(), "NO_SESSION");
    // The next session of the socket is a dictation again, and one that nothing was said in has no speakers.
    client.start();
    EXPECT_FALSE(client.finish(1000).contains("plain_text"));
    client.start();
    client.switchToMeeting();
    EXPECT_FALSE(client.finish(100).contains("diarization_task_id"));

    const TestServer endless(R"({"finish":"never"})", {.finishTimeout = 200ms});
    MeetingClient late(endless, endless.token());
    late.startMode("meeting_streaming", bothSources);
    late.end();
    late.switchToMeeting();
    EXPECT_EQ(late.nextError(), "SESSION_ENDING");
    EXPECT_EQ(late.nextError(), "TRANSCRIPTION_ERROR");
    EXPECT_TRUE(waitUntil([&] { return spooledFiles(endless) == 0; }));
}

TEST(MeetingStream, AServerWithoutMeetingsGoesOnWithTheDictation) {
    const TestServer server(talk, {.servesMeetings = false});
    for (const bool fromStart : {true, false}) {
        MeetingClient client(server, server.token());
        client.startMode(fromStart ? "meeting_streaming" : "streaming", bothSources);
        if (!fromStart)
            client.switchToMeeting();
        EXPECT_EQ(client.nextError(), "MEETING_DISABLED");
        client.setStatus("active");
        const Json ended = client.finish(1000);
        EXPECT_EQ(ended["text"], "one two three");
        EXPECT_TRUE(ended["mic_only_fallback"].get<bool>()) << "it is kept as a dictation";
        EXPECT_FALSE(ended.contains("plain_text"));
        EXPECT_EQ(client.lastType(), "session_ended");
    }
    EXPECT_EQ(spooledFiles(server), 0U);
}

TEST(MeetingStream, ASocketThatIsCutLosesTheSpeakersOnlyBeforeTheEnd) {
    const TestServer server(talk);
    const QString token = server.token();
    const char* const byRecording = "/transcription/recording/r%201/diarization";
    {
        MeetingClient client(server, token);
        client.startMode("meeting_streaming", bothSources);
        client.say(2);
        ASSERT_TRUE(waitUntil([&] { return spooledFiles(server) == 1; }));
    }
    EXPECT_TRUE(waitUntil([&] { return spooledFiles(server) == 0; })) << "the client keeps the recording";
    EXPECT_EQ(getAs(server, token, byRecording).status, 404);
    {
        MeetingClient client(server, token);
        client.startMode("meeting_streaming", bothSources);
        client.finish(2000);
        client.socket.abort();
    }
    ASSERT_TRUE(waitUntil([&] { return getAs(server, token, byRecording).body["status"] == "completed"; }));
    EXPECT_EQ(getAs(server, token, byRecording).body["total_words"], 6);
    EXPECT_EQ(getAs(server, server.token("stranger"), byRecording).status, 404);
}

TEST(MeetingStream, AFullSpoolCostsTheSpeakersButNoWord) {
    const TestServer server(talk, {.maxSpoolBytes = 100'000});
    const QString token = server.token();
    MeetingClient client(server, token);
    client.startMode("meeting_streaming", bothSources);
    const Json ended = client.finish(10'000);
    EXPECT_EQ(ended["total_words"], 30);
    EXPECT_EQ(ended["diarization_status"], "failed");
    const Json failed = client.next("diarization_failed");
    EXPECT_EQ(failed["task_id"], ended["diarization_task_id"]);
    EXPECT_EQ(failed["code"], "INSUFFICIENT_STORAGE");
    EXPECT_GT(failed["error"].get<std::string>().size(), 20U);
    const auto polled = getAs(server, token, "/transcription/recording/r%201/diarization").body;
    EXPECT_EQ(polled["status"], "failed");
    EXPECT_EQ(polled["code"], "INSUFFICIENT_STORAGE");
    EXPECT_EQ(spooledFiles(server), 0U);
}

} // namespace
