#pragma once

#include "Core/Log.h"

#include <QString>

namespace quillo {

/// Writes a log line of the recording core.
void recordingLog(const QString& message, LogLevel level = LogLevel::info,
                  std::source_location where = std::source_location::current());

/// The markers around one dictation in the log: exactly one start and one end, which names the reason.
class RunLog {
public:
    void begin(const QString& runId, const QString& details);
    /// Only the first call counts.
    void end(const QString& reason, const QString& details);

    [[nodiscard]] const QString& runId() const { return m_runId; }
    [[nodiscard]] const QString& endReason() const { return m_endReason; }
    [[nodiscard]] bool hasEnded() const { return !m_endReason.isEmpty(); }

private:
    QString m_runId;
    QString m_endReason;
};

} // namespace quillo
