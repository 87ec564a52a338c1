#pragma once

#include <QString>

#include <source_location>
#include <string_view>

namespace quillo {

/// Severity of a log line, in increasing order.
enum class LogLevel { debug, info, warn, error };

/// Logs through `LoggingService::shared()`: to the log file and the journal. Callable from any thread.
///
/// `message` is English and must contain no token, password or key. `category` is a short component word.
void appLog(const QString& message, LogLevel level, const QString& category,
            std::source_location where = std::source_location::current());

} // namespace quillo
