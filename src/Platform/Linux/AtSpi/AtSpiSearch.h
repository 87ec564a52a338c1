#pragma once

#include "Platform/Linux/AtSpi/AtSpiCalls.h"

namespace quillo::atspi {

struct FoundFocus {
    AtSpiObject object;   ///< empty when no element of the program says that it has the focus
    bool isOnBus = false; ///< the program answers questions at all
    bool isLate = false;  ///< it did not answer in time
};

/// Looks for the focused element of the program with that process id by walking the visible part of its active window;
/// 0 stands for whichever program has an active window. For focus that came before anyone listened: a program sends no
/// event for it. Costs about half a millisecond an element. Main thread.
Task<FoundFocus> findFocus(QDBusConnection bus, int64_t process, Instant until);

} // namespace quillo::atspi
