#pragma once

namespace quillo {

struct Application;

/// Starts everything that can be started, in the order of the launch; reports to the user what could not be. False when
/// another instance runs already. Needs a QApplication. Main thread.
bool startUp(Application& application);

} // namespace quillo
