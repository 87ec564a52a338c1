#pragma once

#include <span>
#include <string>

namespace quillo::server {

/// `quillo-server accounts ...`: what an administrator does with accounts, also while the server runs. `arguments` are
/// those after "accounts". Talks on the standard streams and returns the exit code that `accountsHelpText` names.
int runAccountsCommand(std::span<const char* const> arguments);

/// The part of --help about it.
std::string accountsHelpText();

} // namespace quillo::server
