#include "Features/Recording/RecordingRun.h"

namespace quillo {

QString RecordingRun::counters() const {
    return QStringLiteral(" observedChunks=%1 observedBytes=%2 bufferedChunks=%3")
        .arg(observedAudioChunks)
        .arg(observedAudioBytes)
        .arg(backlog.chunkCount());
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
}

} // namespace quillo
