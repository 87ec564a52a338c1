#include "Transcription/Http/HttpRecogniser.h"

#include "Transcription/Http/HttpTransfer.h"
#include "Transcription/Http/ServiceErrors.h"
#include "Transcription/Http/TranscriptionResponse.h"
#include "Transcription/SessionCore.h"
#include "Transcription/UtteranceSegmenter.h"

#include <algorithm>
#include <deque>
#include <unistd.h>

namespace quillo::server {

namespace {

using SteadyClock = std::chrono::steady_clock;

/// The richest format first. Services refuse unknown formats; a refused one is not requested again.
enum class AnswerFormat { words, segments, text };

/// Shared by the sessions of a recogniser.
struct Service {
    HttpRecogniserSettings settings;
    std::string url;
    std::atomic<AnswerFormat> format = AnswerFormat::words;
    std::atomic<size_t> sessions = 0;
    std::atomic<bool> isAvailable = true; ///< according to the last answer or failure
};

/// Serves one session: cuts its audio into utterances and sends them one after the other.
class Transcription final : public UtteranceSink {
public:
    Transcription(SessionCore& core, HttpTransfer& transfer, Service& service, std::string language)
        : m_core(core), m_transfer(transfer), m_service(service), m_language(std::move(language)) {}

    /// True when everything is transcribed; false when the session was abandoned or has failed.
    bool run() {
        while (!m_core.abandoned() && !m_failed) {
            takeAudio();
            if (m_finished && m_complete.empty())
                return true;
            startRequest();
            if (const auto result = m_transfer.wait(longestWait()))
                handle(*result);
        }
        return false;
    }

    void utteranceBegan(int64_t firstSample) override {
        m_current = {{}, static_cast<double>(firstSample) / EnergyVad::sampleRate};
        m_sentForPartial = 0;
        m_speaking = true;
    }
    void utteranceAudio(std::span<const int16_t> samples) override {
        m_current.samples.insert(m_current.samples.end(), samples.begin(), samples.end());
    }
    void utteranceEnded(int64_t /*endSample*/, bool /*cut*/) override {
        m_speaking = false;
        m_complete.push_back(std::move(m_current));
        if (m_partialRunning)
            m_transfer.cancel(); // the whole utterance replaces it
        m_partialRunning = false;
    }
    void silence(int64_t /*position*/) override {}

private:
    struct Utterance {
        std::vector<int16_t> samples;
        double start = 0;
    };

    void takeAudio() {
        std::vector<int16_t> samples;
        // Two utterances ahead of the service are enough: the rest waits as backlog, which slows down the client.
        while (!m_finished && m_complete.size() < 2) {
            const auto taken = m_core.poll(samples, EnergyVad::sampleRate / 10);
            if (taken == SessionCore::Take::finished) {
                m_segmenter.finish();
                m_finished = true;
            }
            if (taken != SessionCore::Take::audio)
                return;
            m_segmenter.push(samples);
            m_core.recognised(samples.size());
        }
    }

    void startRequest() {
        if (m_transfer.running())
            return;
        if (!m_complete.empty()) {
            if (SteadyClock::now() >= m_notBefore)
                post(m_complete.front());
            return;
        }
        const auto interval = m_service.settings.partialInterval;
        const auto step = static_cast<size_t>(interval.count()) * EnergyVad::sampleRate / 1000;
        if (!m_speaking || step == 0 || m_current.samples.size() < m_sentForPartial + step)
            return;
        m_sentForPartial = m_current.samples.size();
        m_partialRunning = true;
        post(m_current);
    }

    void post(const Utterance& utterance) {
        const HttpRecogniserSettings& settings = m_service.settings;
        m_askedFormat = m_service.format;
        FormFields fields{{"response_format", m_askedFormat == AnswerFormat::text ? "json" : "verbose_json"},
                          {"temperature", "0"}};
        if (m_askedFormat == AnswerFormat::words)
            fields.emplace_back("timestamp_granularities[]", "word");
        if (!settings.model.empty())
            fields.emplace_back("model", settings.model);
        if (!settings.prompt.empty())
            fields.emplace_back("prompt", settings.prompt);
        if (!m_language.empty())
            fields.emplace_back("language", m_language);
        m_transfer.post(settings, m_service.url, fields, utterance.samples);
    }

    [[nodiscard]] std::chrono::milliseconds longestWait() const {
        constexpr std::chrono::milliseconds untilWoken = std::chrono::minutes(1);
        if (m_transfer.running() || m_complete.empty())
            return untilWoken;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_notBefore - SteadyClock::now());
        return std::clamp(left, std::chrono::milliseconds(0), untilWoken);
    }

    void handle(const HttpResult& result) {
        const bool partial = std::exchange(m_partialRunning, false);
        const double start = partial ? m_current.start : m_complete.front().start;
        auto transcript =
            result.answered && result.status == 200 ? readTranscription(result.body, start) : std::nullopt;
        if (transcript) {
            m_service.isAvailable = true;
            deliver(std::move(*transcript), partial);
            return;
        }
        const bool refused = result.answered && (result.status == 400 || result.status == 422);
        if (refused && m_askedFormat != AnswerFormat::text) {
            m_service.format = m_askedFormat == AnswerFormat::words ? AnswerFormat::segments : AnswerFormat::text;
            return;
        }
        if (!partial) // a failed partial text is not an error: the whole utterance decides
            retryOrFail(result);
    }

    void deliver(Transcript transcript, bool partial) {
        const Utterance& utterance = partial ? m_current : m_complete.front();
        transcript.start = utterance.start;
        transcript.end = utterance.start + static_cast<double>(utterance.samples.size()) / EnergyVad::sampleRate;
        if (transcript.language.empty())
            transcript.language = m_language;
        if (!partial) {
            m_complete.pop_front();
            m_attempts = 0;
            m_notBefore = {};
        }
        if (transcript.text.empty())
            return;
        m_core.tell([&](RecognitionListener& listener) {
            partial ? listener.onPartial(transcript) : listener.onFinal(transcript);
        });
    }

    void retryOrFail(const HttpResult& result) {
        const HttpRecogniserSettings& settings = m_service.settings;
        ++m_attempts;
        const ServiceError error = explain(result, settings, m_service.url);
        const auto pause = std::max<std::chrono::milliseconds>(settings.retryDelay * (1 << std::min(m_attempts - 1, 8)),
                                                               result.retryAfter);
        if (error.passing && m_attempts < settings.maxAttempts && pause <= settings.longestWait) {
            m_notBefore = SteadyClock::now() + pause;
            return;
        }
        m_service.isAvailable = !error.unavailable;
        m_failed = true;
        m_failure = error;
    }

public:
    /// Why `run` gave up, if it did.
    [[nodiscard]] std::optional<ServiceError> failure() const { return m_failed ? m_failure : std::nullopt; }

private:
    SessionCore& m_core;
    HttpTransfer& m_transfer;
    Service& m_service;
    const std::string m_language;
    UtteranceSegmenter m_segmenter{*this};
    std::deque<Utterance> m_complete;
    Utterance m_current;
    size_t m_sentForPartial = 0;
    bool m_speaking = false;
    bool m_partialRunning = false;
    bool m_finished = false;
    AnswerFormat m_askedFormat = AnswerFormat::words;
    int m_attempts = 0;
    SteadyClock::time_point m_notBefore;
    bool m_failed = false;
    std::optional<ServiceError> m_failure;
};

class HttpRecogniser final : public Recogniser {
public:
    explicit HttpRecogniser(const HttpRecogniserSettings& settings) {
        m_service.settings = settings;
        std::string& url = m_service.settings.url;
        if (!url.starts_with("http://") && !url.starts_with("https://"))
            throw RecogniserUnavailable("The address of the transcription service must begin with http:// or https://");
        if (settings.key.find_first_of("\r\n") != std::string::npos)
            throw RecogniserUnavailable("The key of the transcription service contains a line break: check where it is "
                                        "read from");
        if (!settings.authorityFile.empty() && access(settings.authorityFile.c_str(), R_OK) != 0)
            throw RecogniserUnavailable("Cannot read the certificates in " + settings.authorityFile.string() +
                                        " that the transcription service is to be verified with");
        while (url.ends_with('/'))
            url.pop_back();
        // Many users give the base address with its version.
        if (url.ends_with("/v1") && settings.path.starts_with("/v1/"))
            url.resize(url.size() - 3);
        m_service.url = url + (settings.path.starts_with('/') ? "" : "/") + settings.path;
    }

    [[nodiscard]] std::string name() const override {
        return m_service.settings.model.empty() ? "openai-http" : m_service.settings.model;
    }

    [[nodiscard]] bool isAvailable() const override { return m_service.isAvailable; }

    [[nodiscard]] std::optional<std::vector<std::string>> languages() const override {
        const auto& languages = m_service.settings.languages;
        return languages.empty() ? std::nullopt : std::optional(languages);
    }

    std::unique_ptr<RecognitionSession> open(const RecognitionOptions& options,
                                             std::shared_ptr<RecognitionListener> listener) override {
        std::shared_ptr<void> place = takePlace();
        auto transfer = std::make_shared<HttpTransfer>();
        auto core = std::make_shared<SessionCore>(std::move(listener), [transfer] { transfer->wake(); });
        auto session = makeSession(core);
        m_workers.start(core,
                        [this, core, transfer, place = std::move(place),
                         language = single(options.languages)]() mutable { serve(*core, *transfer, language, place); });
        return session;
    }

private:
    std::shared_ptr<void> takePlace() {
        if (m_service.sessions.fetch_add(1) >= m_service.settings.maxSessions) {
            --m_service.sessions;
            throw RecogniserBusy("All " + std::to_string(m_service.settings.maxSessions) +
                                 " sessions of the transcription service are in use: try again when one has "
                                 "ended, or allow more with --recogniser-sessions");
        }
        return {nullptr, [this](void*) { --m_service.sessions; }};
    }

    /// The language for requests; of several, the service detects the spoken one.
    static std::string single(const std::vector<std::string>& languages) {
        return languages.size() == 1 && languages.front() != "auto" ? languages.front() : std::string();
    }

    void serve(SessionCore& core, HttpTransfer& transfer, const std::string& language, std::shared_ptr<void>& place) {
        std::optional<ServiceError> failure;
        bool complete = false;
        try {
            Transcription transcription(core, transfer, m_service, language);
            complete = transcription.run();
            failure = transcription.failure();
        } catch (const std::exception& error) {
            failure = ServiceError{true, false, error.what()};
        }
        transfer.cancel();
        place.reset();
        if (failure)
            core.tell(
                [&](RecognitionListener& listener) { listener.onFailed(failure->unavailable, failure->message); });
        else if (complete)
            core.tell([](RecognitionListener& listener) { listener.onFinished(); });
    }

    Service m_service;
    WorkerGroup m_workers; // last: its threads use the service
};

} // namespace

std::unique_ptr<Recogniser> makeHttpRecogniser(const HttpRecogniserSettings& settings) {
    return std::make_unique<HttpRecogniser>(settings);
}

} // namespace quillo::server
