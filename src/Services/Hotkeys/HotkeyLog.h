#pragma once

#include "Core/Log.h"

namespace quillo {

/// Writes a log line of the hotkey service.
inline void hotkeyLog(const QString& message, LogLevel level = LogLevel::info) {
    appLog(message, level, QStringLiteral("HotkeyService"));
}

} // namespace quillo
