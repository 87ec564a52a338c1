#pragma once

#include "Concurrency/AsyncStream.h"
#include "Concurrency/TaskRunner.h"
#include "Features/Recording/CaptureChannel.h"
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

namespace quillo {

struct RecordingRun;

/// What all dictations share; it outlives each of them.
struct RunContext {
    RecordingServices services;
    TaskRunner::Report report; ///< of failures that no code expected
    /// Called at the end of each; it gives back what they share.
    std::function<void(const std::shared_ptr<RecordingRun>&)> ended;
    TaskRunner tasks;

    RunContext(RecordingServices owner, TaskRunner::Report reporter)
        : services(std::move(owner)), report(reporter), tasks(std::move(reporter)) {}
};

/// One dictation: the parts it consists of, each with its own state, and the phase it is in. Three lives have three
/// ends: the capture's (`microphone`), the server session's (`server.session`) and the run's own. Held by the
/// coroutines that work for it; main thread.
struct RecordingRun : std::enable_shared_from_this<RecordingRun> {
    RecordingRun(std::shared_ptr<RunContext> owner, AsyncStream<RecordingAction>::Sink actions);

    const std::shared_ptr<RunContext> context;
    RecordingServices& services;
    const RecordingPreferences preferences;
    const QString id; ///< the client recording id: names the audio files, and the recording to the server

    RunPhase phase = phase::Opening{};
    RunLog log;
    TimingSnapshot timing;
    std::optional<RunningApplication> targetApp; ///< frontmost at the start
    CaptureChannel::Handle microphone;
    ServerLink server;
    std::unique_ptr<RecordingArchive> archive; ///< made when the microphone opens
    DeliveryResult delivered;

    // The run's own life.
    /// Triggered at the end, however it comes: every wait of this run ends.
    [[nodiscard]] std::stop_token token() const { return m_life.get_token(); }
    [[nodiscard]] bool isOver() const { return std::holds_alternative<phase::Over>(phase); }
    [[nodiscard]] const phase::Stopping* stopping() const { return std::get_if<phase::Stopping>(&phase); }
    /// Writes the end marker, reports the timings and ends the action stream. The first call counts.
    void finish(const QString& reason);

    /// Feeds `action` back into the store. Of a dictation that another one has overtaken the state shows nothing more:
    /// what the person must know becomes a notice.
    void yield(RecordingAction action) const;
    /// The next dictation has begun while this one is being finished.
    void fallBehind() { m_isBehind = true; }
    [[nodiscard]] bool isBehind() const { return m_isBehind; }

    /// Runs `body` for this run. A failure that no code expected ends the dictation: the audio is kept, the person is
    /// told, the state is left, and the failure is reported.
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
