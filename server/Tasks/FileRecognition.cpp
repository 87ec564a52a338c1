#include "Tasks/FileRecognition.h"

#include "Transcription/TranscriptAssembler.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>

namespace quillo::server {
namespace {

using Clock = std::chrono::steady_clock;

/// Audio that the recogniser may be behind: enough to keep it busy, little enough to be held in memory.
constexpr double backlogSeconds = 10;
/// The recogniser does not say when it has caught up.
constexpr auto lookInterval = std::chrono::milliseconds(20);

/// Gathers the pieces and tells the feeding thread how the recognition ends.
class Collector final : public RecognitionListener {
public:
    void onPartial(const Transcript&) override { touch(); }
    void onFinal(const Transcript& transcript) override {
        const std::scoped_lock lock(mutex_);
        ++events_;
        if (transcript.text.empty())
            return;
        text_.append(transcript);
        if (result_.language.empty())
            result_.language = transcript.language;
        result_.pieces.push_back(transcript);
    }
    void onFinished() override {
        {
            const std::scoped_lock lock(mutex_);
            finished_ = true;
        }
        changed_.notify_all();
    }
    void onFailed(bool unavailable, const std::string& message) override {
        {
            const std::scoped_lock lock(mutex_);
            failure_.emplace(message, unavailable);
        }
        changed_.notify_all();
    }

    /// Waits a moment, at most until the end; false once everything was recognised. Throws what went wrong.
    bool wait(const std::stop_token& stop) {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, lookInterval, [&] { return finished_ || failure_; });
        if (failure_)
            throw RecognitionFailed(*failure_);
        if (!finished_ && stop.stop_requested())
            throw RecognitionStopped();
        return !finished_;
    }

    [[nodiscard]] uint64_t events() const {
        const std::scoped_lock lock(mutex_);
        return events_;
    }

    RecognisedFile take() {
        const std::scoped_lock lock(mutex_);
        result_.text = text_.text();
        return std::move(result_);
    }

private:
    void touch() {
        const std::scoped_lock lock(mutex_);
        ++events_;
    }

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    RecognisedFile result_;
    TranscriptAssembler text_;
    uint64_t events_ = 0;
    bool finished_ = false;
    std::optional<RecognitionFailed> failure_;
};

/// Notices when nothing happens any more.
class Watchdog {
public:
    Watchdog(std::chrono::milliseconds timeout, const Collector& collector)
        : timeout_(timeout), collector_(collector) {}

    void look(double backlog) {
        const auto events = collector_.events();
        if (backlog != backlog_ || events != events_) {
            backlog_ = backlog;
            events_ = events;
            since_ = Clock::now();
        } else if (Clock::now() - since_ > timeout_) {
            throw RecognitionFailed("The recogniser has stopped answering", true);
        }
    }

private:
    std::chrono::milliseconds timeout_;
    const Collector& collector_;
    double backlog_ = -1;
    uint64_t events_ = 0;
    Clock::time_point since_ = Clock::now();
};

} // namespace

RecognisedFile recogniseFile(Recogniser& recogniser, AudioReader& audio, const FileRecognitionSettings& settings,
                             const std::stop_token& stop) {
    const auto collector = std::make_shared<Collector>();
    RecognitionOptions options;
    options.background = settings.background;
    if (!settings.language.empty() && settings.language != "auto")
        options.languages = {settings.language};
    const auto session = recogniser.open(options, collector);

    Watchdog watchdog(settings.stallTimeout, *collector);
    const double length = std::max(1.0, static_cast<double>(audio.length()) / AudioReader::rate);
    int64_t samples = 0;
    const auto look = [&] {
        const double backlog = session->backlogSeconds();
        watchdog.look(backlog);
        if (settings.onProgress)
            settings.onProgress(
                std::clamp((static_cast<double>(samples) / AudioReader::rate - backlog) / length, 0.0, 1.0));
        return backlog;
    };

    AudioBlock block;
    while (audio.read(block)) {
        if (settings.onAudio)
            settings.onAudio(block);
        while (look() > backlogSeconds)
            collector->wait(stop);
        if (stop.stop_requested())
            throw RecognitionStopped();
        session->push(block.mono);
        samples += static_cast<int64_t>(block.mono.size());
    }
    session->finish();
    while (collector->wait(stop))
        look();

    RecognisedFile result = collector->take();
    result.sampleCount = samples;
    return result;
}

} // namespace quillo::server
