#include "Features/Recording/RecordingRun.h"

#include "Core/NotificationCenter.h"

namespace quillo {

QString RecordingRun::counters() const {
    return QStringLiteral(" observedChunks=%1 observedBytes=%2 bufferedChunks=%3")
        .arg(observedAudioChunks)
        .arg(observedAudioBytes)
        .arg(backlog.chunkCount());
}

ArchivedText RecordingRun::archivedText() const {
    ArchivedText archived{.text = text,
                          .originalText = ended && ended->commandApplied
                                              ? services.webSocket.texts().originalTextBeforeCommand
                                              : QString(),
                          .sessionId = currentSessionId,
                          .language = detectedLanguage,
                          .metricsId = std::nullopt,
                          .mismatch = std::nullopt};
    if (ended) {
        archived.metricsId = ended->metricsId;
        archived.mismatch = ended->languageMismatch;
        if (ended->languageDetected)
            archived.language = *ended->languageDetected;
    }
    return archived;
}

void RecordingRun::finish(const QString& reason) {
    if (isFinished)
        return;
    isFinished = true;
    recordingLog(QStringLiteral("📈 Timing snapshot: %1").arg(timing.description()));
    services.metrics.track(QStringLiteral("recording_finished"), timing.metrics(services.clock.now()));
    log.end(reason, counters());
    sink.finish();
    stop.request_stop();
    if (timing.audioCaptureStartedAt)
        NotificationCenter::shared().post(notification::realTimeRecordingStopped);
}

} // namespace quillo
