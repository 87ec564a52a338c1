#include "Transcription/PocketSphinx/PocketSphinxRecogniser.h"

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
/// How much of a session's first utterance is held back to estimate the channel.
constexpr size_t openingSamples = EnergyVad::sampleRate;
/// Niceness of background work: the scheduler then favours live sessions threefold. A higher value would let it starve
/// on a busy machine: at 10 and a load of 17, ten seconds of audio took three minutes.
constexpr int backgroundNice = 5;

/// Recognises one session's audio on one decoder.
class Recognition final : public UtteranceSink {
public:
    Recognition(SessionCore& core, Decoder& decoder, const PocketSphinxSettings& settings)
        : m_core(core), m_decoder(decoder), m_settings(settings) {}

    void utteranceBegan(int64_t firstSample) override {
        m_utteranceStart = static_cast<double>(firstSample) / samplesPerSecond;
        m_begun = false;
    }

    void utteranceAudio(std::span<const int16_t> samples) override {
        m_pending.insert(m_pending.end(), samples.begin(), samples.end());
        if (!m_begun && !m_channelKnown && m_pending.size() < openingSamples)
            return;
        while (m_pending.size() >= chunkSamples && !m_core.abandoned())
            decodeChunk();
    }

    void utteranceEnded(int64_t endSample, bool cut) override {
        if (m_core.abandoned())
            return;
        if (!m_begun)
            beginDecoding();
        m_decoder.process(m_pending);
        m_pending.clear();
        RawWords words = m_decoder.end();
        m_begun = false;
        m_lastPartial.clear();
        m_utteranceEnd = static_cast<double>(endSample) / samplesPerSecond;
        m_cut = cut;
        if (words.empty())
            return;
        m_channelKnown = true;
        for (Word& word : words) {
            word.start += m_utteranceStart;
            word.end += m_utteranceStart;
        }
        hold(std::move(words));
    }

    void silence(int64_t position) override {
        const double pause = static_cast<double>(position) / samplesPerSecond - m_utteranceEnd;
        // The end of an utterance is detected only after a pause.
        const double heard = m_cut ? 0 : static_cast<double>(EnergyVad::hangoverFrames) / 50;
        if (!m_held.empty() && pause + heard >= std::chrono::duration<double>(m_settings.sentencePause).count())
            release(TextFormatter::Ending::sentence);
    }

    void finish() { release(TextFormatter::Ending::sentence); }

private:
    void beginDecoding() {
        const std::span<const int16_t> heard(m_pending);
        m_decoder.begin(m_channelKnown ? std::span<const int16_t>()
                                       : heard.first(std::min(heard.size(), openingSamples)));
        m_begun = true;
    }

    void decodeChunk() {
        if (!m_begun)
            beginDecoding();
        const auto end = m_pending.begin() + chunkSamples;
        m_decoder.process(std::span(m_pending).first(chunkSamples));
        m_pending.erase(m_pending.begin(), end);
        RawWords words = m_held;
        const RawWords heard = m_decoder.partial();
        if (heard.empty())
            return;
        words.insert(words.end(), heard.begin(), heard.end());
        Transcript partial = describe(preview(words));
        if (partial.text.empty() || partial.text == m_lastPartial)
            return;
        m_lastPartial = partial.text;
        partial.words.clear(); // times are known at the end only
        partial.start = m_held.empty() ? m_utteranceStart : m_held.front().start;
        partial.end = m_utteranceStart;
        m_core.tell([&](RecognitionListener& listener) { listener.onPartial(partial); });
    }

    /// Holds the words of an utterance until it is known whether the sentence continues: a mark dictated after a breath
    /// belongs to it, and a full stop needs a long pause.
    void hold(RawWords words) {
        if (!m_held.empty()) {
            const auto marks = words.begin() + static_cast<ptrdiff_t>(TextFormatter::leadingMarks(words));
            m_held.insert(m_held.end(), words.begin(), marks);
            words.erase(words.begin(), marks);
            if (words.empty())
                return;
            release(TextFormatter::Ending::continues);
        }
        m_held = std::move(words);
        Transcript partial = describe(preview(m_held));
        if (!partial.text.empty())
            m_core.tell([&](RecognitionListener& listener) { listener.onPartial(partial); });
    }

    void release(TextFormatter::Ending ending) {
        if (m_held.empty())
            return;
        Transcript piece = describe(m_settings.formatText ? m_formatter.commit(m_held, ending) : plain(m_held));
        m_held.clear();
        if (!piece.text.empty())
            m_core.tell([&](RecognitionListener& listener) { listener.onFinal(piece); });
    }

    [[nodiscard]] TextFormatter::Written preview(const RawWords& words) const {
        return m_settings.formatText ? m_formatter.preview(words) : plain(words);
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

    SessionCore& m_core;
    Decoder& m_decoder;
    const PocketSphinxSettings& m_settings;
    TextFormatter m_formatter;
    std::vector<int16_t> m_pending;
    RawWords m_held;
    std::string m_lastPartial;
    double m_utteranceStart = 0;
    double m_utteranceEnd = 0;
    bool m_begun = false;
    bool m_channelKnown = false;
    bool m_cut = false;
};

class PocketSphinxRecogniser final : public Recogniser {
public:
    explicit PocketSphinxRecogniser(const PocketSphinxSettings& settings)
        : m_settings(settings), m_pool(ModelFiles::in(settings.modelFolder, settings.removeNoise), settings.maxDecoders,
                                       settings.idleUnload) {}

    [[nodiscard]] std::string name() const override { return "pocketsphinx"; }

    [[nodiscard]] std::optional<std::vector<std::string>> languages() const override { return {{"en"}}; }

    [[nodiscard]] bool isAvailable() const override {
        return ::access((m_settings.modelFolder / "en-us.lm.bin").c_str(), R_OK) == 0;
    }

    std::unique_ptr<RecognitionSession> open(const RecognitionOptions& options,
                                             std::shared_ptr<RecognitionListener> listener) override {
        requireEnglish(options.languages);
        std::shared_ptr slot = m_pool.reserve();
        if (!slot)
            throw RecogniserBusy("All " + std::to_string(m_settings.maxDecoders) +
                                 " sessions of the embedded recogniser are in use: try again when one has "
                                 "ended, or allow more with --recogniser-sessions");
        auto core = std::make_shared<SessionCore>(std::move(listener));
        auto session = makeSession(core);
        m_workers.start(core, [this, core, slot = std::move(slot), background = options.background]() mutable {
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
                                "\": for other languages start the server with --recogniser http and the "
                                "--recogniser-url of a transcription service, such as a Whisper server");
    }

    void serve(SessionCore& core, std::shared_ptr<DecoderPool::Slot>& slot, bool background) const {
        try {
            Decoder& decoder = slot->decoder();
            // Lower it only now: a live session may be waiting for the lock under which models are loaded.
            if (background)
                yieldToOthers();
            Recognition recognition(core, decoder, m_settings);
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

    const PocketSphinxSettings m_settings;
    DecoderPool m_pool;
    WorkerGroup m_workers; // last: its threads use the pool
};

} // namespace

std::unique_ptr<Recogniser> makePocketSphinxRecogniser(const PocketSphinxSettings& settings) {
    return std::make_unique<PocketSphinxRecogniser>(settings);
}

} // namespace quillo::server
