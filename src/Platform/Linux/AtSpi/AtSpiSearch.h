#pragma once

#include "Platform/Linux/AtSpi/AtSpiCalls.h"

namespace quillo::atspi {

struct FoundFocus {
    AtSpiObject object;   ///< empty when no element of the program reports the focus
    bool isOnBus = false; ///< whether the program is on the bus
    bool isLate = false;  ///< it did not answer in time
};

/// Searches the visible part of the active window for the focused element of the program with this process id; 0 means
/// any program with an active window. Needed when the element was focused before we listened for events. Costs about
/// half a millisecond per element. Main thread.
Task<FoundFocus> findFocus(QDBusConnection bus, int64_t process, Instant until);

} // namespace quillo::atspi
