#include "Meetings/MeetingRecording.h"
#include "Meetings/MeetingText.h"
#include "Server/Transcription/Support/Speech.h"
#include "Transcription/Scripted/ScriptedRecogniser.h"
#include "Uploads/UploadError.h"

#include <gmock/gmock.h>

#include <condition_variable>
#include <stdlib.h>

using namespace quillo::server;
using namespace quillo::server::test;

namespace {

class MeetingRecordingTest : public testing::Test {
protected:
    MeetingRecordingTest() {
        std::string name = (std::filesystem::temp_directory_path() / "meeting-XXXXXX").string();
        folder = ::mkdtemp(name.data());
        tasks = std::make_shared<TaskService>(TaskSettings{.dataFolder = folder},
                                              makeScriptedRecogniser(Script::defaultScript()),
                                              std::chrono::system_clock::now);
        tasks->start();
    }
    ~MeetingRecordingTest() override {
        tasks.reset();
        std::filesystem::remove_all(folder);
    }

    /// Speaks into the recording as the stream delivers it, and has every sentence recognised.
    void say(MeetingRecording& meeting, const std::string& voice, const std::string& text) {
        const auto samples = speak(voice, text);
        const double start = meeting.position();
        for (size_t i = 0; i < samples.size(); i += 1600)
            meeting.addAudio(std::span(samples).subspan(i, std::min<size_t>(1600, samples.size() - i)));
        Transcript piece;
        piece.text = text;
        piece.start = start + 1; // a second of noise comes first
        piece.end = meeting.position() - 0.8;
        meeting.addPiece(piece);
    }
    Json separate(MeetingRecording& meeting) {
        const auto task = meeting.conclude({.userId = "u", .recordingId = "r"}, "en")().value();
        std::mutex mutex;
        std::condition_variable changed;
        std::optional<Task> over;
        tasks->whenOver("u", task.id, [&](const Task& done) {
            const std::scoped_lock lock(mutex);
            over = done;
            changed.notify_all();
        });
        std::unique_lock lock(mutex);
        EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(60), [&] { return over.has_value(); }));
        return parseJson(over ? over->result : "").value_or(Json());
    }
    [[nodiscard]] MeetingRecording recording() const {
        return {tasks, [](const std::function<void()>& work) { work(); }};
    }

    std::filesystem::path folder;
    std::shared_ptr<TaskService> tasks;
};

struct Conversation {
    const char* name;
    std::vector<std::string> voices; ///< one for each sentence
    size_t switchAt;                 ///< sentences before it is a meeting
    double silence;                  ///< seconds before the first sentence
    const char* speakers;            ///< of each sentence
};

TEST_F(MeetingRecordingTest, EverySentenceGetsItsVoice) {
    const Conversation cases[] = {
        {"a meeting from the start", {"rms", "slt", "rms", "slt"}, 0, 0, "1212"},
        {"a switch in the middle", {"slt", "rms", "slt", "rms"}, 2, 0, "1212"},
        {"a switch after more than is kept", {"slt", "rms", "rms", "slt"}, 1, 200, "1221"},
        {"one voice", {"awb", "awb", "awb", "awb"}, 0, 0, "1111"},
    };
    for (const auto& [name, voices, switchAt, silence, speakers] : cases) {
        MeetingRecording meeting = recording();
        if (switchAt == 0)
            meeting.activate(true);
        for (double left = silence; left > 0; left -= 10)
            meeting.addAudio(Samples(160000));
        std::vector<double> starts;
        for (size_t i = 0; i < voices.size(); ++i) {
            if (i == switchAt && i > 0)
                meeting.activate(true);
            say(meeting, voices[i], std::string(sentences()[i].text));
            starts.push_back(meeting.pieces().back().start);
        }
        const auto segments = segmentsOf(separate(meeting));
        std::string found;
        for (const double start : starts) {
            const auto at = std::ranges::find_if(segments, [&](const MeetingSegment& segment) {
                return segment.start <= start + 0.5 && segment.end > start + 0.5;
            });
            found += at == segments.end() ? '?' : at->speaker.back();
        }
        EXPECT_EQ(found, speakers) << name << "\n" << labeledText(segments);
        EXPECT_EQ(tasks->spool().used(), 0) << name;
    }
}

TEST_F(MeetingRecordingTest, KnowsTheSourceWhereTheMicrophoneWasAlone) {
    MeetingRecording meeting = recording();
    say(meeting, "rms", "hello");
    meeting.activate(true);
    say(meeting, "rms", "hello");
    meeting.changeSystemAudio(SystemAudioStatus::ended);
    say(meeting, "rms", "hello");
    std::vector<AudioSource> sources;
    for (const auto& piece : meeting.pieces())
        sources.push_back(piece.source);
    EXPECT_THAT(sources, testing::ElementsAre(AudioSource::microphone, AudioSource::unknown, AudioSource::microphone));
    const auto segments = segmentsOf(separate(meeting));
    ASSERT_EQ(segments.size(), 3U) << "one speaker, but apart by channel";
    EXPECT_EQ(segments[0].source, AudioSource::microphone);
    EXPECT_EQ(segments[1].source, AudioSource::unknown);
    EXPECT_EQ(segments[2].speaker, "Speaker 1");
}

TEST_F(MeetingRecordingTest, WhatIsNoTranscriptIsNotTakenForOne) {
    StoredTranscript transcript;
    transcript.audioStart = 1.5;
    transcript.heard.language = "en";
    transcript.heard.sampleCount = 320000;
    Transcript piece;
    piece.text = "Hi, \"you\".";
    piece.end = 2;
    piece.words = {{"Hi,", 0, 0.5}, {"\"you\".", 0.5, 2}};
    piece.source = AudioSource::microphone;
    transcript.heard.pieces = {piece, piece};
    const std::string stored = encode(transcript);
    const auto read = decodeTranscript(stored).value();
    EXPECT_EQ(encode(read), stored);
    EXPECT_EQ(read.heard.text, "Hi, \"you\". Hi, \"you\".");
    EXPECT_EQ(read.heard.pieces[1].words[1].end, 2);
    for (const std::string& bad :
         {std::string(), std::string("[]"), stored.substr(0, stored.size() / 2), std::string(R"({"audio_start":"x"})")})
        EXPECT_FALSE(decodeTranscript(bad)) << bad;
}

} // namespace
