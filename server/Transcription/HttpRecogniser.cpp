#include "Transcription/HttpRecogniser.h"

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

/// Richest first. Services refuse what they do not know; what one has refused is not asked again.
enum class AnswerFormat { words, segments, text };

/// What the sessions of a recogniser share.
struct Service {
    HttpRecogniserSettings settings;
    std::string url;
    std::atomic<AnswerFormat> format = AnswerFormat::words;
    std::atomic<size_t> sessions = 0;
};

/// Serves one session: cuts its audio into utterances and has them transcribed one after another.
class Transcription final : public UtteranceSink {
public:
    Transcription(SessionCore& core, HttpTransfer& transfer, Service& service, std::string language)
        : core_(core), transfer_(transfer), service_(service), language_(std::move(language)) {}

    /// True when all was transcribed; false when the session was abandoned or has failed.
    bool run() {
        while (!core_.abandoned() && !failed_) {
            takeAudio();
            if (finished_ && complete_.empty())
                return true;
            startRequest();
            if (const auto result = transfer_.wait(longestWait()))
                handle(*result);
        }
        return false;
    }

    void utteranceBegan(int64_t firstSample) override {
        current_ = {{}, static_cast<double>(firstSample) / EnergyVad::sampleRate};
        sentForPartial_ = 0;
        speaking_ = true;
    }
    void utteranceAudio(std::span<const int16_t> samples) override {
        current_.samples.insert(current_.samples.end(), samples.begin(), samples.end());
    }
    void utteranceEnded(int64_t /*endSample*/, bool /*cut*/) override {
        speaking_ = false;
        complete_.push_back(std::move(current_));
        if (partialRunning_)
            transfer_.cancel(); // the whole utterance replaces it
        partialRunning_ = false;
    }
    void silence(int64_t /*position*/) override {}

private:
    struct Utterance {
        std::vector<int16_t> samples;
        double start = 0;
    };

    void takeAudio() {
        std::vector<int16_t> samples;
        // Two utterances ahead of the service are enough: the rest waits as backlog, which holds the client back.
        while (!finished_ && complete_.size() < 2) {
            const auto taken = core_.poll(samples, EnergyVad::sampleRate / 10);
            if (taken == SessionCore::Take::finished) {
                segmenter_.finish();
                finished_ = true;
            }
            if (taken != SessionCore::Take::audio)
                return;
            segmenter_.push(samples);
            core_.recognised(samples.size());
        }
    }

    void startRequest() {
        if (transfer_.running())
            return;
        if (!complete_.empty()) {
            if (SteadyClock::now() >= notBefore_)
                post(complete_.front());
            return;
        }
        const auto interval = service_.settings.partialInterval;
        const auto step = static_cast<size_t>(interval.count()) * EnergyVad::sampleRate / 1000;
        if (!speaking_ || step == 0 || current_.samples.size() < sentForPartial_ + step)
            return;
        sentForPartial_ = current_.samples.size();
        partialRunning_ = true;
        post(current_);
    }

    void post(const Utterance& utterance) {
        const HttpRecogniserSettings& settings = service_.settings;
        askedFormat_ = service_.format;
        FormFields fields{{"response_format", askedFormat_ == AnswerFormat::text ? "json" : "verbose_json"},
                          {"temperature", "0"}};
        if (askedFormat_ == AnswerFormat::words)
            fields.emplace_back("timestamp_granularities[]", "word");
        if (!settings.model.empty())
            fields.emplace_back("model", settings.model);
        if (!settings.prompt.empty())
            fields.emplace_back("prompt", settings.prompt);
        if (!language_.empty())
            fields.emplace_back("language", language_);
        transfer_.post(settings, service_.url, fields, utterance.samples);
    }

    [[nodiscard]] std::chrono::milliseconds longestWait() const {
        constexpr std::chrono::milliseconds untilWoken = std::chrono::minutes(1);
        if (transfer_.running() || complete_.empty())
            return untilWoken;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(notBefore_ - SteadyClock::now());
        return std::clamp(left, std::chrono::milliseconds(0), untilWoken);
    }

    void handle(const HttpResult& result) {
        const bool partial = std::exchange(partialRunning_, false);
        const double start = partial ? current_.start : complete_.front().start;
        auto transcript =
            result.answered && result.status == 200 ? readTranscription(result.body, start) : std::nullopt;
        if (transcript) {
            deliver(std::move(*transcript), partial);
            return;
        }
        const bool refused = result.answered && (result.status == 400 || result.status == 422);
        if (refused && askedFormat_ != AnswerFormat::text) {
            service_.format = askedFormat_ == AnswerFormat::words ? AnswerFormat::segments : AnswerFormat::text;
            return;
        }
        if (!partial) // a partial text is not worth a failure: the whole utterance will tell
            retryOrFail(result);
    }

    void deliver(Transcript transcript, bool partial) {
        const Utterance& utterance = partial ? current_ : complete_.front();
        transcript.start = utterance.start;
        transcript.end = utterance.start + static_cast<double>(utterance.samples.size()) / EnergyVad::sampleRate;
        if (transcript.language.empty())
            transcript.language = language_;
        if (!partial) {
            complete_.pop_front();
            attempts_ = 0;
            notBefore_ = {};
        }
        if (transcript.text.empty())
            return;
        core_.tell([&](RecognitionListener& listener) {
            partial ? listener.onPartial(transcript) : listener.onFinal(transcript);
        });
    }

    void retryOrFail(const HttpResult& result) {
        const HttpRecogniserSettings& settings = service_.settings;
        ++attempts_;
        const ServiceError error = explain(result, settings, service_.url);
        const auto pause = std::max<std::chrono::milliseconds>(settings.retryDelay * (1 << std::min(attempts_ - 1, 8)),
                                                               result.retryAfter);
        if (error.passing && attempts_ < settings.maxAttempts && pause <= settings.longestWait) {
            notBefore_ = SteadyClock::now() + pause;
            return;
        }
        failed_ = true;
        failure_ = error;
    }

public:
    /// Why `run` gave up, if it did.
    [[nodiscard]] std::optional<ServiceError> failure() const { return failed_ ? failure_ : std::nullopt; }

private:
    SessionCore& core_;
    HttpTransfer& transfer_;
    Service& service_;
    const std::string language_;
    UtteranceSegmenter segmenter_{*this};
    std::deque<Utterance> complete_;
    Utterance current_;
    size_t sentForPartial_ = 0;
    bool speaking_ = false;
    bool partialRunning_ = false;
    bool finished_ = false;
    AnswerFormat askedFormat_ = AnswerFormat::words;
    int attempts_ = 0;
    SteadyClock::time_point notBefore_;
    bool failed_ = false;
    std::optional<ServiceError> failure_;
};

class HttpRecogniser final : public Recogniser {
public:
    explicit HttpRecogniser(const HttpRecogniserSettings& settings) {
        service_.settings = settings;
        std::string& url = service_.settings.url;
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
        // Many write the base address with its version.
        if (url.ends_with("/v1") && settings.path.starts_with("/v1/"))
            url.resize(url.size() - 3);
        service_.url = url + (settings.path.starts_with('/') ? "" : "/") + settings.path;
    }

    [[nodiscard]] std::string name() const override {
        return service_.settings.model.empty() ? "openai-http" : service_.settings.model;
    }

    std::unique_ptr<RecognitionSession> open(const RecognitionOptions& options,
                                             std::shared_ptr<RecognitionListener> listener) override {
        std::shared_ptr<void> place = takePlace();
        auto transfer = std::make_shared<HttpTransfer>();
        auto core = std::make_shared<SessionCore>(std::move(listener), [transfer] { transfer->wake(); });
        auto session = makeSession(core);
        workers_.start(core,
                       [this, core, transfer, place = std::move(place),
                        language = single(options.languages)]() mutable { serve(*core, *transfer, language, place); });
        return session;
    }

private:
    std::shared_ptr<void> takePlace() {
        if (service_.sessions.fetch_add(1) >= service_.settings.maxSessions) {
            --service_.sessions;
            throw RecogniserBusy("All " + std::to_string(service_.settings.maxSessions) +
                                 " sessions of the transcription service are in use: try again when one has "
                                 "ended, or allow more in the server's settings");
        }
        return {nullptr, [this](void*) { --service_.sessions; }};
    }

    /// The language to name in requests: of several the service chooses by ear.
    static std::string single(const std::vector<std::string>& languages) {
        return languages.size() == 1 && languages.front() != "auto" ? languages.front() : std::string();
    }

    void serve(SessionCore& core, HttpTransfer& transfer, const std::string& language, std::shared_ptr<void>& place) {
        std::optional<ServiceError> failure;
        bool complete = false;
        try {
            Transcription transcription(core, transfer, service_, language);
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

    Service service_;
    WorkerGroup workers_; // last: its threads use the service
};

} // namespace

std::unique_ptr<Recogniser> makeHttpRecogniser(const HttpRecogniserSettings& settings) {
    return std::make_unique<HttpRecogniser>(settings);
}

} // namespace quillo::server
