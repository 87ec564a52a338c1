#pragma once

#include "DataFolder.h"
#include "RecogniserFactory.h"
#include "Transport/ServerOptions.h"

#include <span>
#include <string>

namespace quillo::server {

/// The parsed command line.
struct CommandLine {
    ServerOptions server;
    RecogniserOptions recogniser;
    bool listenGiven = false;
    bool exitWithParent = false;
    bool verbose = false;
    bool help = false;
    bool version = false;
};

/// Reads the arguments after the program's name; the data folder defaults to the XDG one. Throws UsageError.
CommandLine parseCommandLine(std::span<const char* const> arguments);

/// The part of --help about the options.
std::string helpText();

} // namespace quillo::server
