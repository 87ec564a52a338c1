#include "Features/Recording/TimingSnapshot.h"

#include <QStringList>

#include <array>

namespace quillo {

namespace {

using Snapshot = TimingSnapshot;

struct Interval {
    const char* label; ///< for the log; null for metrics only
    const char* key;   ///< for the metrics; null for the log only
    Snapshot::Point Snapshot::*from;
    Snapshot::Point Snapshot::*to;
};

constexpr std::array intervals{
    Interval{"hotkey→audioCaptureStarted", "hotkey_to_audio_capture_started_ms", &Snapshot::recordingRequestedAt,
             &Snapshot::audioCaptureStartedAt},
    Interval{"hotkey→firstSample", "hotkey_to_first_sample_ms", &Snapshot::recordingRequestedAt,
             &Snapshot::firstSampleAt},
    Interval{"hotkey→firstChunk", "hotkey_to_first_chunk_ms", &Snapshot::recordingRequestedAt,
             &Snapshot::audioFirstChunkReceivedAt},
    Interval{"audioCaptureStarted→firstChunk", "audio_capture_started_to_first_chunk_ms",
             &Snapshot::audioCaptureStartedAt, &Snapshot::audioFirstChunkReceivedAt},
    Interval{"hotkey→wsConnectStart", "hotkey_to_ws_connect_start_ms", &Snapshot::recordingRequestedAt,
             &Snapshot::webSocketConnectStartedAt},
    Interval{"hotkey→wsConnected", "hotkey_to_ws_connected_ms", &Snapshot::recordingRequestedAt,
             &Snapshot::webSocketConnectedAt},
    Interval{"wsConnectStart→wsConnected", "ws_connect_start_to_ws_connected_ms", &Snapshot::webSocketConnectStartedAt,
             &Snapshot::webSocketConnectedAt},
    Interval{"hotkey→startSessionSent", nullptr, &Snapshot::recordingRequestedAt, &Snapshot::startSessionSentAt},
    Interval{"startSessionSent→sessionStarted", "start_session_sent_to_session_started_ms",
             &Snapshot::startSessionSentAt, &Snapshot::sessionStartedAt},
    Interval{"hotkey→sessionStarted", "hotkey_to_session_started_ms", &Snapshot::recordingRequestedAt,
             &Snapshot::sessionStartedAt},
    Interval{"sessionStarted→firstChunk", nullptr, &Snapshot::sessionStartedAt, &Snapshot::audioFirstChunkReceivedAt},
    Interval{"hotkey→firstPartial", "hotkey_to_first_partial_ms", &Snapshot::recordingRequestedAt,
             &Snapshot::firstPartialTranscriptAt},
    Interval{"hotkey→firstFinal", "hotkey_to_first_final_ms", &Snapshot::recordingRequestedAt,
             &Snapshot::firstFinalTranscriptAt},
    Interval{"stop→sessionEnded", "stop_to_session_ended_ms", &Snapshot::stopRequestedAt,
             &Snapshot::sessionEndedReceivedAt},
    Interval{"stop→textDelivered", "stop_to_text_delivered_ms", &Snapshot::stopRequestedAt, &Snapshot::textDeliveredAt},
};

std::optional<double> milliseconds(const Snapshot::Point& from, const Snapshot::Point& to) {
    if (!from || !to)
        return std::nullopt;
    return std::chrono::duration<double, std::milli>(*to - *from).count();
}

} // namespace

QString TimingSnapshot::description() const {
    QStringList parts;
    for (const auto& interval : intervals) {
        const auto value = milliseconds(this->*interval.from, this->*interval.to);
        if (interval.label && value)
            parts << QStringLiteral("%1=%2ms").arg(QString::fromUtf8(interval.label)).arg(*value, 0, 'f', 1);
    }
    return parts.join(QStringLiteral(", "));
}

QVariantMap TimingSnapshot::metrics(Clock::Instant now) const {
    QVariantMap map;
    for (const auto& interval : intervals) {
        const auto value = milliseconds(this->*interval.from, this->*interval.to);
        if (interval.key && value)
            map.insert(QString::fromLatin1(interval.key), *value);
    }
    if (const auto value = milliseconds(recordingRequestedAt, now))
        map.insert(QStringLiteral("hotkey_to_now_ms"), *value);
    return map;
}

} // namespace quillo
