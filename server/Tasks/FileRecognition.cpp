#include "Tasks/FileRecognition.h"

#include "Transcription/TranscriptAssembler.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>

namespace quillo::server {
namespace {

using Clock = std::chrono::steady_clock;

/// How far the recogniser may be behind: enough audio to keep it busy, little enough for the memory.
constexpr double backlogSeconds = 10;
/// Poll, because the recogniser does not report when it has caught up.
constexpr auto lookInterval = std::chrono::milliseconds(20);

/// Collects the pieces and reports the end of the recognition to the feeding thread.
class Collector final : public RecognitionListener {
public:
    void onPartial(const Transcript&) override { touch(); }
    void onFinal(const Transcript& transcript) override {
        const std::scoped_lock lock(m_mutex);
        ++m_events;
        if (transcript.text.empty())
            return;
        m_text.append(transcript);
        if (m_result.language.empty())
            m_result.language = transcript.language;
        m_result.pieces.push_back(transcript);
    }
    void onFinished() override {
        {
            const std::scoped_lock lock(m_mutex);
            m_finished = true;
        }
        m_changed.notify_all();
    }
    void onFailed(bool unavailable, const std::string& message) override {
        {
            const std::scoped_lock lock(m_mutex);
            m_failure.emplace(message, unavailable);
        }
        m_changed.notify_all();
    }

    /// Waits a moment, at most until the end; false once everything is recognised. Throws on failure.
    bool wait(const std::stop_token& stop) {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, lookInterval, [&] { return m_finished || m_failure; });
        if (m_failure)
            throw RecognitionFailed(*m_failure);
        if (!m_finished && stop.stop_requested())
            throw RecognitionStopped();
        return !m_finished;
    }

    [[nodiscard]] uint64_t events() const {
        const std::scoped_lock lock(m_mutex);
        return m_events;
    }

    RecognisedFile take() {
        const std::scoped_lock lock(m_mutex);
        m_result.text = m_text.text();
        return std::move(m_result);
    }

private:
    void touch() {
        const std::scoped_lock lock(m_mutex);
        ++m_events;
    }

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    RecognisedFile m_result;
    TranscriptAssembler m_text;
    uint64_t m_events = 0;
    bool m_finished = false;
    std::optional<RecognitionFailed> m_failure;
};

/// Detects that the recogniser makes no progress.
class Watchdog {
public:
    Watchdog(std::chrono::milliseconds timeout, const Collector& collector)
        : m_timeout(timeout), m_collector(collector) {}

    void look(double backlog) {
        const auto events = m_collector.events();
        if (backlog != m_backlog || events != m_events) {
            m_backlog = backlog;
            m_events = events;
            m_since = Clock::now();
        } else if (Clock::now() - m_since > m_timeout) {
            throw RecognitionFailed("The recogniser has stopped answering", true);
        }
    }

private:
    std::chrono::milliseconds m_timeout;
    const Collector& m_collector;
    double m_backlog = -1;
    uint64_t m_events = 0;
    Clock::time_point m_since = Clock::now();
};

const std::vector<int16_t>& samplesOf(const AudioBlock& block, AudioSource source) {
    switch (source) {
    case AudioSource::microphone:
        return block.left;
    case AudioSource::system:
        return block.right;
    case AudioSource::unknown:
        break;
    }
    return block.mono;
}

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
        session->push(samplesOf(block, settings.source));
        samples += static_cast<int64_t>(block.mono.size());
    }
    session->finish();
    while (collector->wait(stop))
        look();

    RecognisedFile result = collector->take();
    result.sampleCount = samples;
    for (Transcript& piece : result.pieces)
        piece.source = settings.source;
    return result;
}

} // namespace quillo::server
