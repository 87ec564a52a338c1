// Accuracy, speed, latency and memory of the embedded recogniser on synthesised speech, and on the human speech of
// Debian's package pocketsphinx-testdata when that is installed. Synthesised speech flatters a recogniser: the human
// figures are the honest ones.

#include "Server/Transcription/Support/CollectingListener.h"
#include "Server/Transcription/Support/Speech.h"
#include "Transcription/PocketSphinx/DecoderPool.h"
#include "Transcription/PocketSphinx/PocketSphinxRecogniser.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <future>
#include <regex>
#include <thread>

namespace quillo::server::test {
namespace {

using SteadyClock = std::chrono::steady_clock;

double secondsSince(SteadyClock::time_point start) {
    return std::chrono::duration<double>(SteadyClock::now() - start).count();
}

double residentMegabytes() {
    std::ifstream status("/proc/self/statm");
    long pages = 0;
    long resident = 0;
    status >> pages >> resident;
    return static_cast<double>(resident) * 4096 / 1e6;
}

double quantile(std::vector<double> values, double share) {
    if (values.empty())
        return 0;
    std::ranges::sort(values);
    return values[static_cast<size_t>(share * static_cast<double>(values.size() - 1))];
}

std::string recognise(Recogniser& recogniser, const Samples& audio) {
    const auto listener = std::make_shared<CollectingListener>();
    const auto session = recogniser.open({}, listener);
    session->push(audio);
    session->finish();
    return listener->awaitText();
}

void printAccuracy(Recogniser& recogniser) {
    std::printf("%-28s %6s %8s %8s\n", "speaker", "words", "WER %", "RTF");
    for (const char* voice : {"slt", "rms", "awb", "kal16"}) {
        size_t errors = 0;
        size_t words = 0;
        double audioSeconds = 0;
        double spent = 0;
        for (const Sentence& sentence : sentences()) {
            const Samples audio = speak(voice, sentence.text);
            const auto start = SteadyClock::now();
            errors += wordErrors(sentence.text, recognise(recogniser, audio));
            spent += secondsSince(start);
            audioSeconds += static_cast<double>(audio.size()) / 16000;
            words += wordCount(sentence.text);
        }
        std::printf("flite %-22s %6zu %8.2f %8.2f\n", voice, words,
                    100.0 * static_cast<double>(errors) / static_cast<double>(words), spent / audioSeconds);
    }
}

void printHumanAccuracy(Recogniser& recogniser) {
    const std::filesystem::path folder = "/usr/share/pocketsphinx/test/data/librivox";
    std::ifstream transcripts(folder / "transcription");
    if (!transcripts) {
        std::printf("human speech: not measured, install pocketsphinx-testdata\n");
        return;
    }
    const std::regex form(R"((?:<s>)?\s*(.*?)\s*(?:</s>)?\s*\((\S+)\))");
    size_t errors = 0;
    size_t words = 0;
    double audioSeconds = 0;
    double spent = 0;
    for (std::string line; std::getline(transcripts, line);) {
        std::smatch match;
        if (!std::regex_match(line, match, form))
            continue;
        const Samples audio = readSamples(folder / (match[2].str() + ".wav"));
        const auto start = SteadyClock::now();
        errors += wordErrors(match[1].str(), recognise(recogniser, audio));
        spent += secondsSince(start);
        audioSeconds += static_cast<double>(audio.size()) / 16000;
        words += wordCount(match[1].str());
    }
    if (words > 0)
        std::printf("%-28s %6zu %8.2f %8.2f\n", "human (LibriVox, Austen)", words,
                    100.0 * static_cast<double>(errors) / static_cast<double>(words), spent / audioSeconds);
}

/// Feeds audio at the speed of a microphone and measures how long a speaker would wait.
void printLatency(Recogniser& recogniser) {
    std::vector<double> partialLatencies;
    std::vector<double> finalLatencies;
    for (size_t i = 0; i < 8; ++i) {
        const Samples audio = speak("rms", sentences()[i].text);
        class Timing final : public RecognitionListener {
        public:
            std::vector<std::pair<double, size_t>> partials; ///< seconds since the start, words
            std::vector<Word> words;
            std::promise<void> finished;
            SteadyClock::time_point start = SteadyClock::now();
            void onPartial(const Transcript& transcript) override {
                partials.emplace_back(secondsSince(start), wordCount(transcript.text));
            }
            void onFinal(const Transcript& transcript) override { words = transcript.words; }
            void onFinished() override { finished.set_value(); }
            void onFailed(bool /*unavailable*/, const std::string& /*message*/) override { finished.set_value(); }
        };
        const auto listener = std::make_shared<Timing>();
        const auto session = recogniser.open({}, listener);
        listener->start = SteadyClock::now();
        // Stops 0.2 s after the last word, as a user releases the key.
        const size_t end = audio.size() - 9600;
        for (size_t at = 0; at < end; at += 1600) {
            const size_t count = std::min<size_t>(1600, end - at);
            std::this_thread::sleep_until(listener->start + std::chrono::microseconds((at + count) * 1000000 / 16000));
            session->push(std::span(audio).subspan(at, count));
        }
        const auto released = SteadyClock::now();
        session->finish();
        listener->finished.get_future().wait();
        finalLatencies.push_back(secondsSince(released) * 1000);
        for (size_t word = 0; word < listener->words.size(); ++word)
            for (const auto& [when, count] : listener->partials)
                if (count > word) {
                    partialLatencies.push_back((when - listener->words[word].end) * 1000);
                    break;
                }
    }
    std::printf("end of a word to first partial text with it: median %.0f ms, 90 %% %.0f ms\n",
                quantile(partialLatencies, 0.5), quantile(partialLatencies, 0.9));
    std::printf("end of the dictation to its final text: median %.0f ms, worst %.0f ms\n",
                quantile(finalLatencies, 0.5), quantile(finalLatencies, 1));
}

void printLoading() {
    const double before = residentMegabytes();
    std::promise<void> unloaded;
    std::atomic<int> left = 2;
    DecoderPool pool(ModelFiles::in(PocketSphinxSettings().modelFolder, true), 2, std::chrono::seconds(1), [&] {
        if (--left == 0)
            unloaded.set_value();
    });
    double first = 0;
    {
        const auto one = pool.reserve();
        const auto start = SteadyClock::now();
        one->decoder();
        std::printf("load time: %.2f s\n", secondsSince(start));
        first = residentMegabytes();
        const auto two = pool.reserve();
        two->decoder();
        std::printf("memory: %.0f MB idle, +%.0f MB for a decoder, +%.0f MB for another\n", before, first - before,
                    residentMegabytes() - first);
    }
    unloaded.get_future().wait();
    std::printf("memory after unloading: %.0f MB\n", residentMegabytes());
}

} // namespace
} // namespace quillo::server::test

int main() {
    using namespace quillo::server;
    test::printLoading();
    PocketSphinxSettings settings;
    settings.formatText = false;
    const auto recogniser = makePocketSphinxRecogniser(settings);
    test::printLatency(*recogniser);
    test::printAccuracy(*recogniser);
    test::printHumanAccuracy(*recogniser);
}
