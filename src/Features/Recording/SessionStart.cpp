#include "Features/Recording/SessionStart.h"

#include "Core/NotificationCenter.h"
#include "Features/Recording/AudioUplink.h"
#include "Features/Recording/ServerConnection.h"
#include "Features/Recording/ServerLoss.h"
#include "Features/Recording/SessionMessages.h"
#include "Features/Recording/SessionRequests.h"
#include "Features/Recording/SessionStop.h"
#include "Features/Recording/StartStopSounds.h"

namespace quillo::sessionStart {

namespace {

/// Shows `failure` and ends a run whose microphone cannot be used.
void fail(RecordingRun& run, RecordingAction failure, const QString& reason) {
    if (run.isOver())
        return;
    run.services.metrics.track(QStringLiteral("recording_failed"), {{QStringLiteral("reason"), reason}});
    if (run.archive)
        run.archive->keepPending(reason);
    run.yield(std::move(failure));
    run.finish(QStringLiteral("failed(%1)").arg(reason));
}

void failPermission(RecordingRun& run, RecordingError error, const QString& permission) {
    if (run.isOver())
        return;
    const auto reason = QStringLiteral("permissions_failed(%1)").arg(permission);
    run.services.metrics.track(QStringLiteral("recording_failed"), {{QStringLiteral("reason"), reason}});
    run.yield(action::RecordingFailed{std::move(error)});
    run.finish(reason);
}

Task<bool> ensurePermissions(RunHandle run) {
    auto& permissions = run->services.permissions;
    recordingLog(QStringLiteral("🔐 Checking permissions : microphone + accessibility"));
    bool microphone = permissions.isMicrophoneGranted();
    bool accessibility = permissions.isAccessibilityGranted();
    if (microphone && accessibility) {
        recordingLog(QStringLiteral("✅ Permissions OK (fast) "));
        co_return true;
    }
    recordingLog(QStringLiteral("🔐 Permissions need async request: mic=%1 accessibility=%2")
                     .arg(microphone ? QStringLiteral("true") : QStringLiteral("false"),
                          accessibility ? QStringLiteral("true") : QStringLiteral("false")));
    if (!microphone)
        microphone = co_await permissions.requestMicrophone();
    if (!microphone) {
        recordingLog(QStringLiteral("❌ Microphone permission denied"), LogLevel::error);
        failPermission(*run, RecordingError::MicrophonePermissionDenied{}, QStringLiteral("microphone"));
        co_return false;
    }
    if (!accessibility)
        accessibility = co_await permissions.requestAccessibility();
    if (!accessibility) {
        recordingLog(QStringLiteral("⚠️ Accessibility missing - resetting immediately (system dialog shown)"),
                     LogLevel::warn);
        failPermission(*run, RecordingError::AccessibilityPermissionDenied{}, QStringLiteral("accessibility"));
        co_return false;
    }
    co_return true;
}

/// Prepares the disk and the history for the dictation.
void beginArchive(RecordingRun& run) {
    run.archive = std::make_unique<RecordingArchive>(run.services.stores,
                                                     ArchiveFacts{
                                                         .recordingId = run.id,
                                                         .userId =
                                                             [&auth = run.services.auth] {
                                                                 const auto user = auth.currentUser();
                                                                 return user ? user->id : QString();
                                                             },
                                                         .createdAt = run.services.clock.wallTime(),
                                                         .primaryLanguage = run.preferences.primaryLanguage,
                                                         .secondaryLanguage = run.preferences.secondaryLanguage,
                                                         .targetApp = run.targetApp ? run.targetApp->name : QString(),
                                                         .targetAppPid = run.targetApp ? run.targetApp->pid : 0,
                                                         .isMeeting = run.server.plan.isMeeting(),
                                                     },
                                                     run.captures.backups());
    run.archive->begin();
}

void captured(const RunHandle& run, const AudioChunk& chunk) {
    if (run->isOver())
        return;
    auto& timing = run->timing;
    const auto now = run->services.clock.now();
    if (!timing.audioFirstChunkReceivedAt) {
        timing.audioFirstChunkReceivedAt = now;
        timing.firstSampleAt = run->services.audio.firstSampleAt();
        run->services.metrics.track(QStringLiteral("first_audio_chunk"));
        if (!run->server.session->isStarted)
            run->services.metrics.track(QStringLiteral("buffering_audio_before_session_started"));
    }
    timing.audioLastChunkReceivedAt = now;
    run->server.isIncomplete = run->server.isIncomplete || run->captures.counters().droppedChunks > 0;
    run->yield(action::AudioChunkCaptured{chunk});
    run->yield(action::AudioLevelUpdated{chunk.level});
    audioUplink::send(run);
}

void silent(RecordingRun& run, const QString& device) {
    const auto detail = QStringLiteral("No audio from microphone '%1'. Check System Settings → Sound → Input "
                                       "(correct device, level not at zero).")
                            .arg(device);
    fail(run,
         action::RecordingFailed{
             RecordingError::AudioCaptureFailed{detail, {QStringLiteral("error.microphoneSilent"), {device}}}},
         QStringLiteral("audio_no_callbacks"));
}

/// The channel's hooks must not hold the run, because the run owns the channel.
CaptureChannel::Hooks hooksOf(const RunHandle& run) {
    const auto weak = std::weak_ptr(run);
    return {
        .launch =
            [weak](const QString& name, std::function<Task<>()> body) {
                if (const auto owner = weak.lock())
                    owner->launch(name, std::move(body));
            },
        .captured =
            [weak](const AudioChunk& chunk) {
                if (const auto owner = weak.lock())
                    captured(owner, chunk);
            },
        .lost =
            [weak](const QString& reason) {
                if (const auto owner = weak.lock())
                    sessionStop::request(owner, StopCause::microphoneLost, reason);
            },
        .waiting =
            [weak](const QString& device) {
                if (const auto owner = weak.lock(); owner && !owner->isOver())
                    owner->yield(action::MicrophoneAwaited{device});
            },
        .silent =
            [weak](const QString& device) {
                if (const auto owner = weak.lock())
                    silent(*owner, device);
            },
    };
}

void captureTarget(RecordingRun& run) {
    if (run.services.applications.isAvailable())
        run.targetApp = run.services.applications.frontmost();
    if (!run.targetApp)
        return;
    recordingLog(QStringLiteral("🎯 Target app captured: %1").arg(run.targetApp->name));
    run.yield(action::TargetApplicationCaptured{run.targetApp->name});
}

/// Preparation only saves time, so its failure must not end the dictation.
Task<> prepareInjection(RunHandle run) {
    try {
        co_await run->services.textInjection.prepareForInjection();
    } catch (const std::exception& error) {
        recordingLog(QStringLiteral("⚠️ Preparing the insertion failed: %1").arg(QString::fromUtf8(error.what())),
                     LogLevel::warn);
    }
}

/// Whatever goes wrong here, the recording continues without the server.
Task<std::optional<ConnectFailure>> openConnection(RunHandle run) {
    QString unexpected;
    try {
        co_return co_await serverConnection::open(run);
    } catch (const std::exception& error) {
        unexpected = QString::fromUtf8(error.what());
    }
    run->context->report(QStringLiteral("open connection"), unexpected);
    co_return ConnectFailure{unexpected, std::nullopt};
}

/// Connects, reads the events and starts a session. On failure the recording continues on disk only.
Task<> connect(RunHandle run) {
    if (!run->services.network.isConnected()) {
        recordingLog(QStringLiteral("🌐 No network detected — recording without the server "), LogLevel::warn);
        serverLoss::goOffline(run, QStringLiteral("No internet connection"));
        co_return;
    }
    const auto failure = co_await openConnection(run);
    if (failure && run->isOver()) {
        recordingLog(QStringLiteral("⚠️ Ignoring connection error after cancel %1").arg(failure->error), LogLevel::warn);
        co_return;
    }
    if (run->isOver())
        co_return;
    if (failure) {
        serverLoss::goOffline(run, failure->error, failure->refusal);
        co_return;
    }
    recordingLog(QStringLiteral("📥 Starting message receiving loop..."));
    // The event stream queues from the moment the socket is open, so sending need not wait.
    sessionMessages::begin(run, run->services.webSocket.receiveMessages());
    QString error;
    try {
        co_await sessionRequests::request(run);
        co_return;
    } catch (const WebSocketError& sending) {
        error = QString::fromUtf8(sending.what());
    } catch (const std::exception& unexpected) {
        error = QString::fromUtf8(unexpected.what());
        run->context->report(QStringLiteral("start session"), error);
    }
    serverLoss::goOffline(run, error);
}

/// The conditions that prevent a start, checked in memory.
bool mayStart(RecordingRun& run) {
    if (!run.preferences.languageChosen) {
        recordingLog(
            QStringLiteral("🌐 First-recording language gate — asking UI to pick a language before dictating"));
        NotificationCenter::shared().post(notification::firstRecordingLanguageGateRequested);
        run.yield(action::Reset{});
        run.finish(QStringLiteral("cancelled(language_gate)"));
        return false;
    }
    return true;
}

} // namespace

Task<> start(RunHandle run) {
    if (!mayStart(*run))
        co_return;
    if (!co_await ensurePermissions(run) || run->isOver())
        co_return;

    recordingLog(QStringLiteral("🎙️ Starting recording (real) "));
    recordingLog(QStringLiteral("🎤 Starting audio capture "));
    run->captures.microphone()->hooks = hooksOf(run);
    // This call starts the work; everything up to the await runs while the device opens.
    const auto failure = std::make_shared<CaptureChannel::Failure>();
    auto opening = CaptureChannel::open(run->captures.microphone(), failure);
    playSound(*run, SoundCue::start);
    captureTarget(*run);
    beginArchive(*run);

    const auto result = co_await std::move(opening);
    if (result == CaptureChannel::OpenResult::failed)
        fail(*run, action::AudioCaptureFailed{failure->reason, failure->words}, QStringLiteral("audio_capture"));
    if (result != CaptureChannel::OpenResult::opened || run->isOver())
        co_return;
    run->phase = phase::Listening{};
    NotificationCenter::shared().post(notification::realTimeRecordingStarted);
    run->timing.audioCaptureStartedAt = run->services.clock.now();
    recordingLog(QStringLiteral("✅ Audio capture started "));
    run->services.metrics.track(QStringLiteral("audio_capture_started"));
    run->yield(action::AudioCaptureStarted{});
    recordingLog(QStringLiteral("📤 Starting audio streaming..."));
    run->launch(QStringLiteral("prepare injection"), [run] { return prepareInjection(run); });
    run->launch(QStringLiteral("first chunk watchdog"),
                [run] { return CaptureChannel::watchFirstChunk(run->captures.microphone()); });
    co_await connect(run);
    recordingLog(QStringLiteral("🧹 Finishing startRecording stream "));
}

Task<> startDemo(RunHandle run) {
    run->phase = phase::Listening{};
    recordingLog(QStringLiteral("🎭 Starting DEMO recording... "));
    run->yield(action::SessionStarted{QStringLiteral("demo"), false});
    recordingLog(QStringLiteral("🎭 Demo session started: demo"));
    run->yield(
        action::PartialTranscriptReceived{QStringLiteral("Hello this is demo"), 1.0F, std::nullopt, std::nullopt});
    recordingLog(QStringLiteral("🎭 Demo recording running - waiting for stop "));
    co_return;
}

} // namespace quillo::sessionStart
