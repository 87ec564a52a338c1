#pragma once

#include <QString>

#include <optional>

namespace quillo {

/// A piece of recognised text. Times are seconds from the start of the session.
struct TranscriptionResult {
    QString text;
    std::optional<QString> language;
    std::optional<double> confidence; ///< 0 to 1
    std::optional<int> wordCount;
    std::optional<int> durationMs;
    std::optional<QString> speaker;
    std::optional<QString> sourceChannel; ///< "microphone" or "system"
    std::optional<double> segmentStart;
    std::optional<double> segmentEnd;

    bool operator==(const TranscriptionResult&) const = default;
};

} // namespace quillo
