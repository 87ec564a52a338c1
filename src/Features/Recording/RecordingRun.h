#pragma once

#include "Concurrency/AsyncEvent.h"
#include "Concurrency/AsyncStream.h"
#include "Concurrency/TaskRunner.h"
#include "Features/Recording/AudioBacklog.h"
#include "Features/Recording/RecordingAction.h"
#include "Features/Recording/RecordingServices.h"
#include "Features/Recording/RunLog.h"
#include "Features/Recording/TimingSnapshot.h"

#include <QString>

#include <memory>
#include <optional>
#include <stop_token>

namespace quillo {

/// Everything that belongs to one dictation and dies with it. Held by the coroutines that work for it; main thread.
struct RecordingRun {
    RecordingRun(RecordingServices& owner, TaskRunner& runner, AsyncStream<RecordingAction>::Sink actions)
        : services(owner), tasks(runner), sink(std::move(actions)), preferences(owner.preferences()) {}

    RecordingServices& services;
    TaskRunner& tasks;
    AsyncStream<RecordingAction>::Sink sink;
    const RecordingPreferences preferences;
    /// Triggered by cancel and at the end: every wait of this run ends.
    std::stop_source stop;

    std::optional<QDateTime> startTime; ///< the state's, which tells one dictation from the next
    RunLog log;
    TimingSnapshot timing;
    QString clientRecordingId;
    QString currentSessionId;
    std::optional<RunningApplication> targetApp; ///< frontmost at the start

    // What it leaves behind; made when the microphone opens.
    std::unique_ptr<RecordingArchive> archive;
    /// A sentence for the user: the disk or the history refused something on the way.
    std::optional<QString> problem;

    // Audio.
    bool isCapturing = false; ///< chunks are coming, or a stream of them has still to be read to its end
    /// Ends the reading of the microphone before its stream does: nobody wants what is still to come.
    std::stop_source captureStop;
    /// The server did not get, or did not keep, all that was captured: its text is not the whole of what was said.
    bool isIncomplete = false;
    AudioBacklog backlog;
    bool sendsDirectly = false; ///< the session is open and the backlog has been sent
    bool isFlushing = false;    ///< the backlog is being sent; chunks still join it at its end
    AsyncEvent flushed;         ///< of the flush under way or the latest one
    int captureGeneration = 0;  ///< a restarted capture makes the stream before it a stranger
    AsyncEvent captureDrained;
    AsyncEvent firstChunk;
    int observedAudioChunks = 0;
    qint64 observedAudioBytes = 0;
    float lastObservedAudioLevel = 0;
    std::optional<QString> captureFailure; ///< the microphone was lost and could not be replaced

    // Session.
    AsyncEvent sessionStarted;
    AsyncEvent sessionEnded;   ///< the server's last word came, or will not come
    AsyncEvent connectionGone; ///< the start failed or the connection was lost: no session will start any more
    bool isStopping = false;
    bool isOffline = false;
    bool isFinished = false;
    bool isCommandProcessing = false;
    bool serverErrorDuringFinalization = false;
    bool textAlreadyInjected = false;
    std::optional<Clock::Instant> lastServerMessageAt;
    std::optional<server::SessionEnded> ended;
    int chunksSent = 0;
    std::optional<RecordingAction> fatalError; ///< what the server's failure is to be shown as
    QString detectedLanguage;

    // Result.
    QString text;
    std::optional<Delivery> delivery;

    [[nodiscard]] std::stop_token token() const { return stop.get_token(); }
    [[nodiscard]] bool isCancelled() const { return stop.stop_requested(); }
    void yield(RecordingAction action) const { sink.yield(std::move(action)); }

    /// For the history: `text`, and what the server said about it.
    [[nodiscard]] ArchivedText archivedText() const;
    /// " observedChunks=... bufferedChunks=..." for the end marker.
    [[nodiscard]] QString counters() const;
    /// Writes the end marker, reports the timings and ends the action stream. The first call counts.
    void finish(const QString& reason);
};

using RunHandle = std::shared_ptr<RecordingRun>;

} // namespace quillo
