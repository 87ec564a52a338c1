#pragma once

#include <optional>
#include <string>

namespace quillo::server {

/// A line from standard input without its line end; empty at the end of input and for lines longer than 4096 bytes.
std::optional<std::string> readLine();

/// Asks on the terminal without echo; empty when cancelled. Without a terminal, reads a line of standard input
/// silently.
std::optional<std::string> readSecret(const std::string& prompt);

/// True when standard input is a terminal.
bool isInteractive();

} // namespace quillo::server
