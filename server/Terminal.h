#pragma once

#include <optional>
#include <string>

namespace quillo::server {

/// A line from standard input without its end; empty at the end of input. Longer than 4096 bytes is no line.
std::optional<std::string> readLine();

/// Asks on the terminal without showing what is typed; empty when it was broken off. Without a terminal on standard
/// input it is a line of it, asked for silently.
std::optional<std::string> readSecret(const std::string& prompt);

/// True when somebody sits in front of standard input.
bool isInteractive();

} // namespace quillo::server
