#pragma once

#include "Transcription/Recogniser.h"
#include "Transcription/TranscriptAssembler.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace quillo::server::test {

/// Keeps what a recognition says and lets a test await its end. Thread-safe.
class CollectingListener final : public RecognitionListener {
public:
    static constexpr std::chrono::seconds watchdog{100};

    void onPartial(const Transcript& transcript) override {
        const std::scoped_lock lock(m_mutex);
        m_partials.push_back(transcript);
        m_changed.notify_all();
    }
    void onFinal(const Transcript& transcript) override {
        const std::scoped_lock lock(m_mutex);
        m_finals.push_back(transcript);
        m_text.append(transcript);
        m_changed.notify_all();
    }
    void onFinished() override {
        const std::scoped_lock lock(m_mutex);
        m_finished = true;
        m_changed.notify_all();
    }
    void onFailed(bool unavailable, const std::string& message) override {
        const std::scoped_lock lock(m_mutex);
        m_failure = (unavailable ? "unavailable: " : "refused: ") + message;
        m_changed.notify_all();
    }

    /// The session's text once it has finished; "failed: ..." or "timed out" otherwise.
    std::string awaitText() {
        std::unique_lock lock(m_mutex);
        if (!m_changed.wait_for(lock, watchdog, [this] { return m_finished || !m_failure.empty(); }))
            return "timed out";
        return m_failure.empty() ? m_text.text() : "failed: " + m_failure;
    }
    /// Awaits `count` partial texts; false when the watchdog ran out first.
    bool awaitPartials(size_t count) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, watchdog, [&] { return m_partials.size() >= count || !m_failure.empty(); }) &&
               m_failure.empty();
    }
    std::vector<Transcript> partials() {
        const std::scoped_lock lock(m_mutex);
        return m_partials;
    }
    std::vector<Transcript> finals() {
        const std::scoped_lock lock(m_mutex);
        return m_finals;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Transcript> m_partials;
    std::vector<Transcript> m_finals;
    TranscriptAssembler m_text;
    bool m_finished = false;
    std::string m_failure;
};

} // namespace quillo::server::test
