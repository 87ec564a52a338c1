#include "Transcription/PocketSphinxRecogniser.h"

#include "Transcription/Formatting/TextFormatter.h"
#include "Transcription/PocketSphinx/DecoderPool.h"
#include "Transcription/SessionCore.h"
#include "Transcription/UtteranceSegmenter.h"

#include <algorithm>
#include <numeric>
#include <sys/resource.h>
#include <unistd.h>

namespace quillo::server {

namespace {

constexpr double samplesPerSecond = EnergyVad::sampleRate;
/// Samples decoded at a time; a partial text may follow each.
constexpr size_t chunkSamples = EnergyVad::sampleRate / 10;
/// How much of a session's first utterance is held back to estimate the channel from.
constexpr size_t openingSamples = EnergyVad::sampleRate;
/// Niceness of work that nobody waits for: the scheduler then favours live sessions threefold. More would let it
/// starve on a machine that is busy otherwise: at 10 and a load of 17, ten seconds of audio took three minutes.
constexpr int backgroundNice = 5;

/// Recognises one session's audio on one decoder.
class Recognition final : public UtteranceSink {
public:
    Recognition(SessionCore& core, Decoder& decoder, const PocketSphinxSettings& settings)
        : core_(core), decoder_(decoder), settings_(settings) {}

    void utteranceBegan(int64_t firstSample) override {
        utteranceStart_ = static_cast<double>(firstSample) / samplesPerSecond;
        begun_ = false;
    }

    void utteranceAudio(std::span<const int16_t> samples) override {
        pending_.insert(pending_.end(), samples.begin(), samples.end());
        if (!begun_ && !channelKnown_ && pending_.size() < openingSamples)
            return;
        while (pending_.size() >= chunkSamples && !core_.abandoned())
            decodeChunk();
    }

    void utteranceEnded(int64_t endSample, bool cut) override {
        if (core_.abandoned())
            return;
        if (!begun_)
            beginDecoding();
        decoder_.process(pending_);
        pending_.clear();
        RawWords words = decoder_.end();
        begun_ = false;
        lastPartial_.clear();
        utteranceEnd_ = static_cast<double>(endSample) / samplesPerSecond;
        cut_ = cut;
        if (words.empty())
            return;
        channelKnown_ = true;
        for (Word& word : words) {
            word.start += utteranceStart_;
            word.end += utteranceStart_;
        }
        hold(std::move(words));
    }

    void silence(int64_t position) override {
        const double pause = static_cast<double>(position) / samplesPerSecond - utteranceEnd_;
        // The end of an utterance is itself found only after a pause.
        const double heard = cut_ ? 0 : static_cast<double>(EnergyVad::hangoverFrames) / 50;
        if (!held_.empty() && pause + heard >= std::chrono::duration<double>(settings_.sentencePause).count())
            release(TextFormatter::Ending::sentence);
    }

    void finish() { release(TextFormatter::Ending::sentence); }

private:
    void beginDecoding() {
        const std::span<const int16_t> heard(pending_);
        decoder_.begin(channelKnown_ ? std::span<const int16_t>()
                                     : heard.first(std::min(heard.size(), openingSamples)));
        begun_ = true;
    }

    void decodeChunk() {
        if (!begun_)
            beginDecoding();
        const auto end = pending_.begin() + chunkSamples;
        decoder_.process(std::span(pending_).first(chunkSamples));
        pending_.erase(pending_.begin(), end);
        RawWords words = held_;
        const RawWords heard = decoder_.partial();
        if (heard.empty())
            return;
        words.insert(words.end(), heard.begin(), heard.end());
        Transcript partial = describe(preview(words));
        if (partial.text.empty() || partial.text == lastPartial_)
            return;
        lastPartial_ = partial.text;
        partial.words.clear(); // times are known at the end only
        partial.start = held_.empty() ? utteranceStart_ : held_.front().start;
        partial.end = utteranceStart_;
        core_.tell([&](RecognitionListener& listener) { listener.onPartial(partial); });
    }

    /// Keeps the words of an utterance until it is known whether the sentence goes on: a mark dictated after a breath
    /// still belongs to it, and a full stop needs a long pause.
    void hold(RawWords words) {
        if (!held_.empty()) {
            const auto marks = words.begin() + static_cast<ptrdiff_t>(TextFormatter::leadingMarks(words));
            held_.insert(held_.end(), words.begin(), marks);
            words.erase(words.begin(), marks);
            if (words.empty())
                return;
            release(TextFormatter::Ending::continues);
        }
        held_ = std::move(words);
        Transcript partial = describe(preview(held_));
        if (!partial.text.empty())
            core_.tell([&](RecognitionListener& listener) { listener.onPartial(partial); });
    }

    void release(TextFormatter::Ending ending) {
        if (held_.empty())
            return;
        Transcript piece = describe(settings_.formatText ? formatter_.commit(held_, ending) : plain(held_));
        held_.clear();
        if (!piece.text.empty())
            core_.tell([&](RecognitionListener& listener) { listener.onFinal(piece); });
    }

    [[nodiscard]] TextFormatter::Written preview(const RawWords& words) const {
        return settings_.formatText ? formatter_.preview(words) : plain(words);
    }

    static TextFormatter::Written plain(const RawWords& words) {
        TextFormatter::Written written{{}, words};
        for (const Word& word : words)
            written.text += (written.text.empty() ? "" : " ") + word.text;
        return written;
    }

    static Transcript describe(TextFormatter::Written written) {
        Transcript transcript;
        transcript.text = std::move(written.text);
        transcript.words = std::move(written.words);
        transcript.language = "en";
        if (!transcript.words.empty()) {
            const auto add = [](double sum, const Word& word) { return sum + word.confidence; };
            transcript.confidence = std::accumulate(transcript.words.begin(), transcript.words.end(), 0.0, add) /
                                    static_cast<double>(transcript.words.size());
            transcript.start = transcript.words.front().start;
            transcript.end = transcript.words.back().end;
        }
        return transcript;
    }

    SessionCore& core_;
    Decoder& decoder_;
    const PocketSphinxSettings& settings_;
    TextFormatter formatter_;
    std::vector<int16_t> pending_;
    RawWords held_;
    std::string lastPartial_;
    double utteranceStart_ = 0;
    double utteranceEnd_ = 0;
    bool begun_ = false;
    bool channelKnown_ = false;
    bool cut_ = false;
};

class PocketSphinxRecogniser final : public Recogniser {
public:
    explicit PocketSphinxRecogniser(const PocketSphinxSettings& settings)
        : settings_(settings),
          pool_(ModelFiles::in(settings.modelFolder, settings.removeNoise), settings.maxDecoders, settings.idleUnload) {
    }

    [[nodiscard]] std::string name() const override { return "pocketsphinx"; }

    std::unique_ptr<RecognitionSession> open(const RecognitionOptions& options,
                                             std::shared_ptr<RecognitionListener> listener) override {
        requireEnglish(options.languages);
        std::shared_ptr slot = pool_.reserve();
        if (!slot)
            throw RecogniserBusy("All " + std::to_string(settings_.maxDecoders) +
                                 " sessions of the embedded recogniser are in use: try again when one has "
                                 "ended, or allow more in the server's settings");
        auto core = std::make_shared<SessionCore>(std::move(listener));
        auto session = makeSession(core);
        workers_.start(core, [this, core, slot = std::move(slot), background = options.background]() mutable {
            serve(*core, slot, background);
        });
        return session;
    }

private:
    /// Lowers the priority of this thread, which serves one session only. Linux keeps one for each thread.
    static void yieldToOthers() { ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), backgroundNice); }

    static void requireEnglish(const std::vector<std::string>& languages) {
        const auto served = [](const std::string& language) {
            return language.empty() || language == "auto" || language == "en" || language.starts_with("en-");
        };
        if (languages.empty() || std::ranges::any_of(languages, served))
            return;
        throw LanguageNotServed("The embedded recogniser knows English only, not \"" + languages.front() +
                                "\": for other languages give the server the URL of a transcription service, such "
                                "as a Whisper server");
    }

    void serve(SessionCore& core, std::shared_ptr<DecoderPool::Slot>& slot, bool background) const {
        try {
            Decoder& decoder = slot->decoder();
            // Not before: a live session may be waiting for the lock under which models are loaded.
            if (background)
                yieldToOthers();
            Recognition recognition(core, decoder, settings_);
            UtteranceSegmenter segmenter(recognition);
            std::vector<int16_t> samples;
            SessionCore::Take taken{};
            while ((taken = core.wait(samples, chunkSamples)) == SessionCore::Take::audio) {
                segmenter.push(samples);
                core.recognised(samples.size());
            }
            if (taken == SessionCore::Take::abandoned)
                return;
            segmenter.finish();
            recognition.finish();
        } catch (const std::exception& error) {
            slot.reset();
            core.tell([&](RecognitionListener& listener) { listener.onFailed(true, error.what()); });
            return;
        }
        slot.reset();
        core.tell([](RecognitionListener& listener) { listener.onFinished(); });
    }

    const PocketSphinxSettings settings_;
    DecoderPool pool_;
    WorkerGroup workers_; // last: its threads use the pool
};

} // namespace

std::unique_ptr<Recogniser> makePocketSphinxRecogniser(const PocketSphinxSettings& settings) {
    return std::make_unique<PocketSphinxRecogniser>(settings);
}

} // namespace quillo::server
