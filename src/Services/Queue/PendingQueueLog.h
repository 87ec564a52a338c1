#pragma once

#include "Core/Log.h"

namespace quillo {

/// Writes a log line of the queue.
inline void queueLog(const QString& message, LogLevel level = LogLevel::info) {
    appLog(QStringLiteral("[PendingTranscription] ") + message, level, QStringLiteral("PendingTranscription"));
}

} // namespace quillo
