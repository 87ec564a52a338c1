#pragma once

#include "Platform/Applications.h"

#include <memory>

namespace quillo {

/// Windows by the Extended Window Manager Hints 1.5. Null, with a log line, without an X server.
std::unique_ptr<Applications> createX11Applications();

} // namespace quillo
