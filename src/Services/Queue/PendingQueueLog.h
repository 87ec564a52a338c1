#pragma once

#include "Core/Log.h"

namespace quillo {

/// A line of the queue of recordings that wait for their text.
inline void queueLog(const QString& message, LogLevel level = LogLevel::info) {
    appLog(QStringLiteral("[PendingTranscription] ") + message, level, QStringLiteral("PendingTranscription"));
}

} // namespace quillo
