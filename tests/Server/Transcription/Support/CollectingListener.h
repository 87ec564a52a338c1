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
        const std::scoped_lock lock(mutex_);
        partials_.push_back(transcript);
        changed_.notify_all();
    }
    void onFinal(const Transcript& transcript) override {
        const std::scoped_lock lock(mutex_);
        finals_.push_back(transcript);
        text_.append(transcript);
        changed_.notify_all();
    }
    void onFinished() override {
        const std::scoped_lock lock(mutex_);
        finished_ = true;
        changed_.notify_all();
    }
    void onFailed(bool unavailable, const std::string& message) override {
        const std::scoped_lock lock(mutex_);
        failure_ = (unavailable ? "unavailable: " : "refused: ") + message;
        changed_.notify_all();
    }

    /// The session's text once it has finished; "failed: ..." or "timed out" otherwise.
    std::string awaitText() {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, watchdog, [this] { return finished_ || !failure_.empty(); }))
            return "timed out";
        return failure_.empty() ? text_.text() : "failed: " + failure_;
    }
    /// Awaits `count` partial texts; false when the watchdog ran out first.
    bool awaitPartials(size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, watchdog, [&] { return partials_.size() >= count || !failure_.empty(); }) &&
               failure_.empty();
    }
    bool awaitFinals(size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, watchdog, [&] { return finals_.size() >= count || !failure_.empty(); }) &&
               failure_.empty();
    }
    std::vector<Transcript> partials() {
        const std::scoped_lock lock(mutex_);
        return partials_;
    }
    std::vector<Transcript> finals() {
        const std::scoped_lock lock(mutex_);
        return finals_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Transcript> partials_;
    std::vector<Transcript> finals_;
    TranscriptAssembler text_;
    bool finished_ = false;
    std::string failure_;
};

} // namespace quillo::server::test
