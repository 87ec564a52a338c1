#pragma once

#include "Concurrency/AsyncStream.h"
#include "Concurrency/TaskRunner.h"
#include "Features/Recording/Captures.h"
#include "Features/Recording/RecordingAction.h"
#include "Features/Recording/RecordingServices.h"
#include "Features/Recording/RunLog.h"
#include "Features/Recording/RunPhase.h"
#include "Features/Recording/ServerLink.h"
#include "Features/Recording/TimingSnapshot.h"

#include <QString>

#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

namespace quillo {

struct RecordingRun;

/// Shared by all dictations; outlives each of them.
struct RunContext {
    RecordingServices services;
    TaskRunner::Report report; ///< for unexpected failures
    /// Called at the end of each dictation, to release shared resources.
    std::function<void(const std::shared_ptr<RecordingRun>&)> ended;
    TaskRunner tasks;
    /// Dictations that have ended while their audio was still being stored; each event is set when that is done.
    std::vector<AsyncEvent> keeping;

    RunContext(RecordingServices owner, TaskRunner::Report reporter)
        : services(std::move(owner)), report(reporter), tasks(std::move(reporter)) {}
};

/// One dictation: its parts, each with its own state, and its phase. The captures, the server session
/// (`server.session`) and the run have separate lifetimes. Held by the coroutines that work for it; main thread.
struct RecordingRun : std::enable_shared_from_this<RecordingRun> {
    RecordingRun(std::shared_ptr<RunContext> owner, AsyncStream<RecordingAction>::Sink actions);

    const std::shared_ptr<RunContext> context;
    RecordingServices& services;
    const RecordingPreferences preferences;
    const QString id; ///< the client recording id, used for the audio files and by the server

    RunPhase phase = phase::Opening{};
    RunLog log;
    TimingSnapshot timing;
    std::optional<RunningApplication> targetApp; ///< frontmost at the start
    Captures captures;
    ServerLink server;
    std::unique_ptr<RecordingArchive> archive; ///< made when the microphone opens
    DeliveryResult delivered;

    // The run's own lifetime.
    /// Triggered at any end of the run; ends all its waits.
    [[nodiscard]] std::stop_token token() const { return m_life.get_token(); }
    [[nodiscard]] bool isOver() const { return std::holds_alternative<phase::Over>(phase); }
    [[nodiscard]] const phase::Stopping* stopping() const { return std::get_if<phase::Stopping>(&phase); }
    /// Writes the end marker, reports the timings and ends the action stream. The first call counts.
    void finish(const QString& reason);

    /// Sends `action` to the store. Once another dictation has begun, this one no longer changes the state; important
    /// messages become notices.
    void yield(RecordingAction action) const;
    /// The next dictation has begun while this one is finishing.
    void fallBehind() { m_isBehind = true; }

    /// Runs `body` for this run. An unexpected failure ends the dictation: the audio is kept, the user is notified, the
    /// state is left, and the failure is reported.
    void launch(const QString& name, std::function<Task<>()> body);

    /// " observedChunks=... bufferedChunks=..." for the end marker.
    [[nodiscard]] QString counters() const;

private:
    static Task<> guard(std::shared_ptr<RecordingRun> run, QString name, std::function<Task<>()> body);
    void endAfterFailure(const QString& error);

    AsyncStream<RecordingAction>::Sink m_sink;
    std::stop_source m_life;
    bool m_isBehind = false;
};

using RunHandle = std::shared_ptr<RecordingRun>;

} // namespace quillo
