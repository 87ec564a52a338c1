#pragma once

#include "RecogniserFactory.h"
#include "Transport/ServerOptions.h"

#include <span>
#include <stdexcept>
#include <string>

namespace quillo::server {

/// What the program was asked to do.
struct CommandLine {
    ServerOptions server;
    RecogniserOptions recogniser;
    bool listenGiven = false;
    bool exitWithParent = false;
    bool verbose = false;
    bool help = false;
    bool version = false;
};

/// A wrong option; the text names it and what to give instead.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reads the arguments after the program's name; the data folder defaults to the XDG one. Throws UsageError.
CommandLine parseCommandLine(std::span<const char* const> arguments);

/// Where the server keeps its files unless --data names another folder. Throws UsageError when HOME names none.
std::filesystem::path defaultDataFolder();

/// The text of --help.
std::string helpText();

} // namespace quillo::server
