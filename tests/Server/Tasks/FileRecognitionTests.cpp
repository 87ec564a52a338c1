#include "Diarization/SpeakerTracker.h"
#include "Server/Transcription/Support/Speech.h"
#include "Tasks/FileRecognition.h"
#include "Tasks/PieceWords.h"
#include "Tasks/TaskResults.h"
#include "Tasks/TaskWork.h"
#include "Transcription/PocketSphinx/PocketSphinxRecogniser.h"
#include "Transcription/Scripted/ScriptedRecogniser.h"

#include <gmock/gmock.h>

#include <cstring>
#include <fstream>
#include <stdlib.h>

using namespace quillo::server;
using namespace quillo::server::test;

namespace {

/// A WAV file of 16 kHz; only for a machine that stores the low byte first.
std::string wavOf(const Samples& samples, char channels = 1) {
    std::string file("RIFF____WAVEfmt \x10\0\0\0\1\0\1\0\x80\x3e\0\0\0\x7d\0\0\2\0\x10\0data____", 44);
    file[22] = channels;
    const auto size = static_cast<uint32_t>(samples.size() * 2);
    const auto whole = size + 36;
    std::memcpy(file.data() + 4, &whole, 4);
    std::memcpy(file.data() + 40, &size, 4);
    return file.append(reinterpret_cast<const char*>(samples.data()), samples.size() * 2);
}

class FileRecognition : public testing::Test {
protected:
    FileRecognition() {
        std::string name = (std::filesystem::temp_directory_path() / "recognition-XXXXXX").string();
        folder = ::mkdtemp(name.data());
    }
    ~FileRecognition() override { std::filesystem::remove_all(folder); }

    std::filesystem::path write(const Samples& samples, char channels = 1) {
        const auto file = folder / "audio.wav";
        std::ofstream(file, std::ios::binary) << wavOf(samples, channels);
        return file;
    }
    static long residentKilobytes() {
        long pages = 0;
        long resident = 0;
        std::ifstream("/proc/self/statm") >> pages >> resident;
        return resident * 4;
    }

    std::filesystem::path folder;
};

TEST_F(FileRecognition, ATwoVoiceConversationGetsItsWordsAndItsSpeakers) {
    Samples samples;
    std::vector<double> starts{0};
    const auto first = sentences()[0].text;
    const auto second = sentences()[1].text;
    for (const auto& [voice, text] : {std::pair("rms", first), std::pair("slt", second), std::pair("rms", second)}) {
        const auto speech = speak(voice, text);
        samples.insert(samples.end(), speech.begin(), speech.end());
        starts.push_back(static_cast<double>(samples.size()) / 16000);
    }
    const auto recogniser = makePocketSphinxRecogniser({});
    AudioReader audio(write(samples));
    SpeakerTracker speakers;
    FileRecognitionSettings settings;
    settings.language = "en";
    settings.background = false; // so that other load on this machine does not matter
    double progress = 0;
    settings.onProgress = [&](double share) {
        EXPECT_GE(share, progress);
        progress = share;
    };
    settings.onAudio = [&](const AudioBlock& block) { speakers.push(block.mono); };
    const auto file = recogniseFile(*recogniser, audio, settings, {});
    EXPECT_GT(progress, 0.9);
    EXPECT_EQ(file.sampleCount, static_cast<int64_t>(samples.size()));

    const Json result = diarizationResult(file, speakers.finish(), "pocketsphinx");
    EXPECT_EQ(result["speaker_count"], 2);
    ASSERT_EQ(result["segments"].size(), 3U) << result;
    const char* labels[] = {"Speaker 1", "Speaker 2", "Speaker 1"};
    const std::string_view texts[] = {first, second, second};
    size_t errors = 0;
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(result["segments"][i]["speaker_label"], labels[i]);
        // A second of noise comes before each sentence, the rest of a second after it.
        EXPECT_NEAR(result["segments"][i]["start"].get<double>(), starts[i] + 1, 0.4);
        EXPECT_NEAR(result["segments"][i]["end"].get<double>(), starts[i + 1] - 0.8, 0.4);
        errors += wordErrors(texts[i], result["segments"][i]["text"].get<std::string>());
    }
    EXPECT_LE(errors, 2U) << result;
    EXPECT_EQ(result["plain_text"], file.text);
}

/// Speech of one channel: what is said after how many seconds, by whom.
struct Line {
    const char* voice;
    double start;
    size_t sentence;
};

Samples channelOf(const std::vector<Line>& lines, double seconds) {
    Samples channel = noise(seconds);
    for (const auto& [voice, start, sentence] : lines) {
        const auto speech = speak(voice, sentences()[sentence].text);
        const auto at = static_cast<size_t>(start * 16000);
        for (size_t i = 0; i < speech.size() && at + i < channel.size(); ++i)
            channel[at + i] = speech[i];
    }
    return channel;
}

TEST_F(FileRecognition, TheChannelsOfAStereoFileHaveTheirOwnWordsAndSpeakers) {
    // Both sides speak at once in the beginning, and the microphone hears a faint echo of the second voice there.
    const std::vector<Line> lines[] = {{{"rms", 0, 0}}, {{"slt", 0.3, 1}, {"awb", 7, 3}}};
    Samples left = channelOf(lines[0], 14);
    const Samples right = channelOf(lines[1], 14);
    Samples stereo;
    for (size_t i = 0; i < left.size(); ++i) {
        const bool echoes = i > size_t{7} * 16000;
        stereo.push_back(static_cast<int16_t>(left[i] + (echoes ? right[i] / 4 : 0)));
        stereo.push_back(right[i]);
    }
    const auto recogniser = makePocketSphinxRecogniser({});
    double progress = 0;
    const TaskWork work{.recogniser = *recogniser,
                        .stallTimeout = std::chrono::minutes(1),
                        .onProgress =
                            [&](double share) {
                                EXPECT_GE(share, progress - 1e-9); // a sum of two channels is rounded
                                progress = share;
                            },
                        .stop = {}};
    const Json result = diarizeUpload(work, write(stereo, 2), "en");
    EXPECT_GT(progress, 0.8);
    EXPECT_EQ(result["duration_ms"], 14000);
    ASSERT_EQ(result["segments"].size(), 3U) << result;
    const std::pair<const char*, size_t> expected[] = {{"microphone", 0}, {"system", 1}, {"system", 3}};
    size_t errors = 0;
    for (size_t i = 0; i < 3; ++i) {
        const Json& segment = result["segments"][i];
        EXPECT_EQ(segment["source_channel"], expected[i].first) << result;
        EXPECT_EQ(segment["speaker_label"], "Speaker " + std::to_string(i + 1)) << result;
        errors += wordErrors(sentences()[expected[i].second].text, segment["text"].get<std::string>());
    }
    EXPECT_LE(errors, 3U) << result;
    EXPECT_EQ(result["speaker_count"], 3);
}

TEST(PieceWords, OnlyWhatTheOtherSideSaysAtTheSameTimeIsAnEcho) {
    const auto piece = [](const char* text, double start, AudioSource source) {
        Transcript transcript;
        transcript.text = text;
        transcript.start = start;
        transcript.end = start + 4;
        transcript.source = source;
        return transcript;
    };
    using enum AudioSource;
    // The far side speaks from 0 to 4 and from 10 to 14, the microphone's person from 10 to 14.
    const std::vector<SpeakerTurn> turns{{0, 4, 0, 1}, {10, 14, 1, 0}, {10, 14, 0, 1}};
    std::vector<Transcript> pieces{piece("Good morning all, friends", 0, system),
                                   piece("good morning all yes", 0.2, microphone),
                                   piece("we agree on that", 10, system), piece("we agree on this", 10, microphone),
                                   piece("good evening to you", 20, microphone)};
    removeEchoes(pieces, turns);
    std::vector<std::string> left;
    for (const auto& kept : pieces)
        left.push_back(kept.text);
    EXPECT_THAT(left, testing::ElementsAre("Good morning all, friends", "yes", "we agree on that", "we agree on this",
                                           "good evening to you"));
}

TEST_F(FileRecognition, HoldsALittleOfALongFile) {
    // Two hours, made of the same minute, as large as 230 MB.
    const auto file = folder / "long.wav";
    const std::string minute = wavOf(Samples(size_t{16000} * 60, 100));
    {
        std::ofstream stream(file, std::ios::binary);
        stream << minute;
        for (int i = 1; i < 120; ++i)
            stream.write(minute.data() + 44, static_cast<std::streamsize>(minute.size() - 44));
    }
    // The header gives only a minute; later samples count when the length is unknown.
    std::fstream(file, std::ios::binary | std::ios::in | std::ios::out).seekp(40).write("\xff\xff\xff\xff", 4);
    const auto recogniser = makeScriptedRecogniser(Script::defaultScript());
    AudioReader audio(file);
    SpeakerTracker speakers;
    FileRecognitionSettings settings;
    [[maybe_unused]] long most = 0;
    [[maybe_unused]] const long before = residentKilobytes();
    settings.onAudio = [&](const AudioBlock& block) {
        speakers.push(block.mono);
        most = std::max(most, residentKilobytes());
    };
    const auto result = recogniseFile(*recogniser, audio, settings, {});
    EXPECT_EQ(result.sampleCount, int64_t{16000} * 7200);
    EXPECT_EQ(result.text.substr(0, 19), "the quick brown fox");
    // The sanitizers keep what was freed for a while, and shadows of all of it.
#if !__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer)
    EXPECT_LT(most - before, 60000); // kB
#endif
}

struct Failure {
    const char* name;
    const char* script;
    const char* text;
    bool unavailable;
};

TEST_F(FileRecognition, FailuresOfTheRecogniserAreTold) {
    const Failure cases[] = {
        {"at some time", R"({"events": [{"at": 1, "fail": "it broke"}]})", "it broke", false},
        {"out of order", R"({"events": [{"at": 1, "unavailable": "no model"}]})", "no model", true},
        {"silent at the end", R"({"words": ["a"], "finish": "never"})", "stopped answering", true},
    };
    for (const auto& [name, script, text, unavailable] : cases) {
        const auto recogniser = makeScriptedRecogniser(Script::fromJson(script));
        AudioReader audio(write(Samples(size_t{16000} * 30)));
        FileRecognitionSettings settings;
        settings.stallTimeout = std::chrono::milliseconds(200);
        try {
            recogniseFile(*recogniser, audio, settings, {});
            ADD_FAILURE() << name;
        } catch (const RecognitionFailed& error) {
            EXPECT_THAT(error.what(), testing::HasSubstr(text)) << name;
            EXPECT_EQ(error.isUnavailable, unavailable) << name;
        }
    }
}

TEST_F(FileRecognition, StopsWhenAsked) {
    const auto recogniser = makeScriptedRecogniser(Script::fromJson(R"({"words": ["a"], "speed": 1})"));
    AudioReader audio(write(Samples(size_t{16000} * 60)));
    std::stop_source stop;
    FileRecognitionSettings settings;
    settings.onAudio = [&](const AudioBlock&) { stop.request_stop(); };
    EXPECT_THROW(recogniseFile(*recogniser, audio, settings, stop.get_token()), RecognitionStopped);
}

} // namespace
