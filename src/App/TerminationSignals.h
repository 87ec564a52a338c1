#pragma once

namespace quillo {

/// Ends the event loop on SIGTERM, SIGINT and SIGHUP, so that nothing stays grabbed, recording or unsaved. To be called
/// once, on the main thread, after the QCoreApplication was made.
void quitOnTerminationSignals();

} // namespace quillo
