#pragma once

#include <string_view>

namespace quillo::server {

enum class LogLevel { debug, info, warning, error };

/// Writes one line to standard error: the level, the component and the message; under systemd with the journal's
/// priority prefix. Control characters in the message are replaced, so that text from outside cannot forge a line.
/// Thread-safe. Tokens and dictated text never belong in a message.
void log(LogLevel level, std::string_view component, std::string_view message);

/// Messages below `level` are dropped from now on; `info` at the start. Thread-safe.
void setLogThreshold(LogLevel level);

} // namespace quillo::server
