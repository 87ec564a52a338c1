#pragma once

#include <span>
#include <string>

namespace quillo::server {

/// `quillo-server accounts ...`: manages accounts, also while the server runs. `arguments` are those after "accounts".
/// Uses the standard streams and returns the exit code given in `accountsHelpText`.
int runAccountsCommand(std::span<const char* const> arguments);

/// Its part of --help.
std::string accountsHelpText();

} // namespace quillo::server
