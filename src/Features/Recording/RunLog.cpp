#include "Features/Recording/RunLog.h"

namespace quillo {

void recordingLog(const QString& message, LogLevel level, std::source_location where) {
    appLog(message, level, QStringLiteral("Recording"), where);
}

void RunLog::begin(const QString& runId, const QString& details) {
    m_runId = runId;
    recordingLog(QStringLiteral("🎬 Recording START %1 %2").arg(runId, details));
}

void RunLog::end(const QString& reason, const QString& details) {
    if (hasEnded())
        return;
    m_endReason = reason;
    recordingLog(QStringLiteral("🏁 Recording END %1 reason=%2 %3").arg(m_runId, reason, details));
}

} // namespace quillo
