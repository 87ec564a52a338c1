#include "Features/Recording/SessionStart.h"

#include "Core/NotificationCenter.h"
#include "Features/Recording/AudioStreaming.h"
#include "Features/Recording/SessionConnector.h"
#include "Features/Recording/StartStopSounds.h"
#include "Localization/LocalizationManager.h"

namespace quillo::sessionStart {

namespace {

/// Shows `failure`, gives back what the start has taken, keeps what was said until then, and ends the run. `pending` is
/// the word beside the audio that waits.
Task<> fail(RunHandle run, RecordingAction failure, QString reason, QString pending = {}) {
    if (!run->isFinished && !run->isCancelled())
        co_await audioStreaming::stopAndDrain(run);
    if (run->isFinished || run->isCancelled()) {
        recordingLog(QStringLiteral("⚠️ Ignoring connection error after cancel "));
        co_return;
    }
    if (run->isStopping)
        co_return; // the stop sees that there is no connection and keeps the audio
    run->services.metrics.track(QStringLiteral("recording_failed"), {{QStringLiteral("reason"), reason}});
    if (run->archive)
        run->archive->keepPending(pending);
    run->yield(std::move(failure));
    run->finish(reason);
    co_await run->services.webSocket.disconnect();
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
        co_await fail(run, action::RecordingFailed{RecordingError::MicrophonePermissionDenied{}},
                      QStringLiteral("permissions_failed(microphone)"));
        co_return false;
    }
    if (!accessibility)
        accessibility = co_await permissions.requestAccessibility();
    if (!accessibility) {
        recordingLog(QStringLiteral("⚠️ Accessibility missing - resetting immediately (system dialog shown)"),
                     LogLevel::warn);
        co_await fail(run, action::RecordingFailed{RecordingError::AccessibilityPermissionDenied{}},
                      QStringLiteral("permissions_failed(accessibility)"));
        co_return false;
    }
    co_return true;
}

/// Opens the disk and the history for what is going to be said.
void beginArchive(RunHandle run) {
    const auto user = run->services.auth.currentUser();
    run->archive = std::make_unique<RecordingArchive>(
        run->services.stores,
        ArchiveFacts{
            .recordingId = run->clientRecordingId,
            .userId = user ? user->id : QString(),
            .createdAt = run->services.clock.wallTime(),
            .primaryLanguage = run->preferences.primaryLanguage,
            .secondaryLanguage = run->preferences.secondaryLanguage,
            .targetApp = run->targetApp ? run->targetApp->name : QString(),
            .targetAppPid = run->targetApp ? run->targetApp->pid : 0,
        },
        // The run owns the archive.
        [&run = *run](const UserMessage& problem) {
            run.problem = LocalizationManager::shared().t(problem);
            NotificationCenter::shared().post(notification::userNotice, {{QStringLiteral("message"), *run.problem}});
        });
    run->archive->begin();
}

void captureTarget(RecordingRun& run) {
    if (run.services.applications.isAvailable())
        run.targetApp = run.services.applications.frontmost();
    if (!run.targetApp)
        return;
    recordingLog(QStringLiteral("🎯 Target app captured: %1").arg(run.targetApp->name));
    run.yield(action::TargetApplicationCaptured{run.targetApp->name});
}

/// The conditions that refuse a start at once, looked up in memory.
bool mayStart(RecordingRun& run) {
    if (!run.preferences.languageChosen) {
        recordingLog(
            QStringLiteral("🌐 First-recording language gate — asking UI to pick a language before dictating"));
        NotificationCenter::shared().post(notification::firstRecordingLanguageGateRequested);
        run.yield(action::Reset{});
        run.finish(QStringLiteral("cancelled(language_gate)"));
        return false;
    }
    if (!run.services.network.isConnected()) {
        recordingLog(QStringLiteral("🌐 No network detected — refusing to start recording "), LogLevel::warn);
        run.yield(action::ConnectionFailed{QStringLiteral("No internet connection")});
        run.finish(QStringLiteral("failed(no_network)"));
        return false;
    }
    return true;
}

} // namespace

Task<> start(RunHandle run) {
    if (!mayStart(*run))
        co_return;
    if (!co_await ensurePermissions(run) || run->isCancelled())
        co_return;

    recordingLog(QStringLiteral("🎙️ Starting recording (real) "));
    recordingLog(QStringLiteral("🎤 Starting audio capture "));
    // The call starts the work; everything below up to the await runs while the device opens.
    auto capture = run->services.audio.startCapture();
    playSound(*run, SoundCue::start);
    captureTarget(*run);
    beginArchive(run);
    run->services.webSocket.clearAllText();
    recordingLog(QStringLiteral("🧹 Cleared all previous text"));

    std::optional<AsyncStream<AudioChunk>> stream;
    QString captureError;
    try {
        stream.emplace(co_await std::move(capture));
    } catch (const AudioServiceError& error) {
        captureError = QString::fromUtf8(error.what());
    }
    // Dropping the stream ends this capture; a stop would hit the microphone of a dictation started meanwhile.
    if (run->isCancelled())
        co_return;
    if (!stream) {
        co_await fail(run, action::AudioCaptureFailed{captureError}, QStringLiteral("failed(audio_capture)"));
        co_return;
    }
    NotificationCenter::shared().post(notification::realTimeRecordingStarted);
    run->timing.audioCaptureStartedAt = run->services.clock.now();
    recordingLog(QStringLiteral("✅ Audio capture started "));
    run->services.metrics.track(QStringLiteral("audio_capture_started"));
    run->yield(action::AudioCaptureStarted{});
    recordingLog(QStringLiteral("📤 Starting audio streaming..."));
    audioStreaming::begin(run, std::move(*stream));
    run->tasks.run(QStringLiteral("prepare injection"),
                   [run](std::stop_token) { return run->services.textInjection.prepareForInjection(); });
    run->tasks.run(QStringLiteral("first chunk watchdog"),
                   [run](std::stop_token) { return audioStreaming::watchFirstChunk(run); });

    if (auto failure = co_await sessionConnector::open(run)) {
        run->connectionGone.set();
        co_await fail(run, std::move(failure->action), failure->reason, QStringLiteral("connection_failed"));
        co_return;
    }
    recordingLog(QStringLiteral("🧹 Finishing startRecording stream "));
}

Task<> startDemo(RunHandle run) {
    recordingLog(QStringLiteral("🎭 Starting DEMO recording... "));
    run->yield(action::SessionStarted{QStringLiteral("demo"), false});
    recordingLog(QStringLiteral("🎭 Demo session started: demo"));
    run->yield(
        action::PartialTranscriptReceived{QStringLiteral("Hello this is demo"), 1.0F, std::nullopt, std::nullopt});
    recordingLog(QStringLiteral("🎭 Demo recording running - waiting for stop "));
    co_return;
}

} // namespace quillo::sessionStart
