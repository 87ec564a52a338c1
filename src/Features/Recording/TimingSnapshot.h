#pragma once

#include "Concurrency/Clock.h"

#include <QString>
#include <QVariantMap>

#include <optional>

namespace quillo {

/// The points in time of one dictation, for the log and the metrics. A point that was not reached is absent, and
/// intervals that need it are left out.
struct TimingSnapshot {
    using Point = std::optional<Clock::Instant>;

    Point recordingRequestedAt; ///< the hotkey
    Point audioCaptureStartedAt;
    Point firstSampleAt; ///< the hardware's first callback
    Point audioFirstChunkReceivedAt;
    Point audioLastChunkReceivedAt;
    Point webSocketConnectStartedAt;
    Point webSocketConnectedAt;
    Point startSessionSentAt;
    Point sessionStartedAt;
    Point firstPartialTranscriptAt;
    Point firstFinalTranscriptAt;
    Point stopRequestedAt;
    Point sessionEndedReceivedAt;
    Point textDeliveredAt;

    /// "hotkey→firstChunk=102ms, ..." in a fixed order.
    [[nodiscard]] QString description() const;
    /// Milliseconds under the keys that end in "_ms".
    [[nodiscard]] QVariantMap metrics(Clock::Instant now) const;
};

} // namespace quillo
