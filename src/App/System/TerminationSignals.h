#pragma once

#include <functional>

namespace quillo {

/// Calls `quit` on the main thread at the first SIGTERM, SIGINT or SIGHUP, so that nothing stays grabbed, recording or
/// unsaved. Call it once, after creating the QCoreApplication.
void onTerminationSignal(std::function<void()> quit);

} // namespace quillo
