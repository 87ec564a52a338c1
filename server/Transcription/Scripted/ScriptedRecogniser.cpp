#include "Transcription/Scripted/ScriptedRecogniser.h"

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace quillo::server {
namespace {

using Clock = std::chrono::steady_clock;
constexpr double samplesPerSecond = 16000;

/// A thread that runs calls at their scheduled time, in order.
class Timeline {
public:
    Timeline() : m_thread([this] { run(); }) {}
    ~Timeline() {
        {
            const std::scoped_lock lock(m_mutex);
            m_stopping = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }
    Timeline(const Timeline&) = delete;
    Timeline& operator=(const Timeline&) = delete;

    void at(Clock::time_point time, std::function<void()> call) {
        {
            const std::scoped_lock lock(m_mutex);
            m_calls.emplace(time, std::move(call));
        }
        m_changed.notify_all();
    }

private:
    void run() {
        std::unique_lock lock(m_mutex);
        while (!m_stopping) {
            if (m_calls.empty()) {
                m_changed.wait(lock);
            } else if (const auto next = m_calls.begin()->first; Clock::now() < next) {
                m_changed.wait_until(lock, next);
            } else {
                auto call = std::move(m_calls.begin()->second);
                m_calls.erase(m_calls.begin());
                lock.unlock();
                call();
                call = nullptr;
                lock.lock();
            }
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::multimap<Clock::time_point, std::function<void()>> m_calls;
    bool m_stopping = false;
    std::thread m_thread;
};

/// Shared by a session and its scheduled calls.
struct Progress {
    std::mutex mutex; ///< held during a call to the listener, so that abandoning waits for it
    bool over = false;
    std::shared_ptr<RecognitionListener> listener;
    std::shared_ptr<const Script> script;
    size_t nextEvent = 0;
    int wordCount = 0;
    int pieceBegin = 0; ///< index of the first word that is not final yet
    double lastFinalEnd = 0;

    Transcript transcript(std::string text, double confidence, double end) const {
        Transcript piece;
        piece.text = std::move(text);
        piece.language = script->language;
        piece.confidence = confidence;
        piece.start = lastFinalEnd;
        piece.end = end;
        return piece;
    }

    void fail(bool unavailable, const std::string& message) {
        over = true;
        listener->onFailed(unavailable, message);
    }

    void playEvents(double heard) {
        while (!over && nextEvent < script->events.size() && script->events[nextEvent].at <= heard) {
            const ScriptEvent& event = script->events[nextEvent++];
            switch (event.kind) {
            case ScriptEvent::Kind::partial:
                listener->onPartial(transcript(event.text, event.confidence, event.at));
                break;
            case ScriptEvent::Kind::final:
                listener->onFinal(transcript(event.text, event.confidence, event.at));
                lastFinalEnd = event.at;
                break;
            case ScriptEvent::Kind::fail:
                fail(false, event.text);
                break;
            case ScriptEvent::Kind::unavailable:
                fail(true, event.text);
                break;
            }
        }
    }

    std::string pieceText() const {
        std::string text;
        for (int i = pieceBegin; i < wordCount; ++i)
            text += (text.empty() ? "" : " ") + script->words[static_cast<size_t>(i) % script->words.size()];
        return text;
    }

    void finishPiece(double end) {
        listener->onFinal(transcript(pieceText(), 0.9, end));
        pieceBegin = wordCount;
        lastFinalEnd = end;
    }

    void growWords(double heard) {
        // Half a sample of slack: 0.3 s of audio times ten words a second must be three words.
        const int target = static_cast<int>((heard + 0.5 / samplesPerSecond) * script->wordsPerSecond);
        bool grew = false;
        while (wordCount < target) {
            ++wordCount;
            grew = true;
            if (wordCount - pieceBegin == script->wordsPerFinal) {
                finishPiece(wordCount / script->wordsPerSecond);
                grew = false;
            }
        }
        if (grew)
            listener->onPartial(transcript(pieceText(), 0.9, heard));
    }

    void hear(double heard) {
        if (over)
            return;
        if (script->words.empty())
            playEvents(heard);
        else
            growWords(heard);
    }

    void finish(double heard) {
        if (over)
            return;
        switch (script->finish) {
        case Script::Finish::normal:
            if (wordCount > pieceBegin)
                finishPiece(heard);
            over = true;
            listener->onFinished();
            break;
        case Script::Finish::never:
            break;
        case Script::Finish::fail:
            fail(false, "the script fails at the end");
            break;
        case Script::Finish::unavailable:
            fail(true, "the script becomes unavailable at the end");
            break;
        }
    }
};

class ScriptedSession : public RecognitionSession {
public:
    ScriptedSession(std::shared_ptr<Timeline> timeline, std::shared_ptr<const Script> script,
                    std::shared_ptr<RecognitionListener> listener)
        : m_timeline(std::move(timeline)), m_script(std::move(script)), m_progress(std::make_shared<Progress>()) {
        m_progress->script = m_script;
        m_progress->listener = std::move(listener);
    }

    ~ScriptedSession() override {
        const std::scoped_lock lock(m_progress->mutex);
        m_progress->over = true;
        m_progress->listener.reset();
    }

    void push(std::span<const int16_t> samples) override {
        const double length = static_cast<double>(samples.size()) / samplesPerSecond;
        const std::scoped_lock lock(m_mutex);
        m_sampleCount += samples.size();
        const auto now = Clock::now();
        if (m_script->speed)
            m_caughtUp = std::max(m_caughtUp, now) + std::chrono::duration_cast<Clock::duration>(
                                                         std::chrono::duration<double>(length / *m_script->speed));
        else
            m_caughtUp = now;
        schedule([heard = heard()](Progress& progress) { progress.hear(heard); });
    }

    void finish() override {
        const std::scoped_lock lock(m_mutex);
        m_caughtUp = std::max(m_caughtUp, Clock::now());
        schedule([heard = heard()](Progress& progress) { progress.finish(heard); });
    }

    [[nodiscard]] double backlogSeconds() const override {
        const std::scoped_lock lock(m_mutex);
        if (!m_script->speed)
            return 0;
        return std::max(0.0, std::chrono::duration<double>(m_caughtUp - Clock::now()).count() * *m_script->speed);
    }

private:
    [[nodiscard]] double heard() const { return static_cast<double>(m_sampleCount) / samplesPerSecond; }

    void schedule(std::function<void(Progress&)> step) {
        m_timeline->at(m_caughtUp + m_script->delay, [progress = m_progress, step = std::move(step)] {
            const std::scoped_lock lock(progress->mutex);
            if (!progress->over)
                step(*progress);
        });
    }

    mutable std::mutex m_mutex;
    std::shared_ptr<Timeline> m_timeline;
    std::shared_ptr<const Script> m_script;
    std::shared_ptr<Progress> m_progress;
    size_t m_sampleCount = 0;
    Clock::time_point m_caughtUp;
};

class ScriptedRecogniser : public Recogniser {
public:
    explicit ScriptedRecogniser(Script script)
        : m_script(std::make_shared<const Script>(std::move(script))), m_timeline(std::make_shared<Timeline>()) {}

    [[nodiscard]] std::string name() const override { return "scripted"; }

    [[nodiscard]] bool isAvailable() const override { return m_script->unavailable.empty(); }

    std::unique_ptr<RecognitionSession> open(const RecognitionOptions&,
                                             std::shared_ptr<RecognitionListener> listener) override {
        if (!m_script->unavailable.empty())
            throw RecogniserUnavailable(m_script->unavailable);
        return std::make_unique<ScriptedSession>(m_timeline, m_script, std::move(listener));
    }

private:
    std::shared_ptr<const Script> m_script;
    std::shared_ptr<Timeline> m_timeline;
};

} // namespace

std::unique_ptr<Recogniser> makeScriptedRecogniser(Script script) {
    return std::make_unique<ScriptedRecogniser>(std::move(script));
}

} // namespace quillo::server
