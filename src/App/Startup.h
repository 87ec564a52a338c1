#pragma once

namespace quillo {

struct Application;

/// Starts all parts in the order of the launch and reports to the user what could not be started. False when another
/// instance runs already. Needs a QApplication. Main thread.
bool startUp(Application& application);

} // namespace quillo
