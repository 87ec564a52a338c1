#pragma once

#include <string_view>

namespace quillo::server {

enum class LogLevel { debug, info, warning, error };

/// Writes one line to standard error: the level, the component and the message; under systemd with the journal's
/// priority prefix. Replaces control characters in the message, so that text from outside cannot forge a line.
/// Thread-safe. Never pass tokens or dictated text.
void log(LogLevel level, std::string_view component, std::string_view message);

/// Drops messages below `level` from now on; initially `info`. Thread-safe.
void setLogThreshold(LogLevel level);

} // namespace quillo::server
