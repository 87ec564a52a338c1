#pragma once

#include "Platform/Linux/X11/InjectionGuard.h"

namespace quillo {

/// Whether another client has grabbed the keyboard, as password prompts do. Main thread, well under a millisecond;
/// false without an X server.
///
/// Requests a grab on a window that is not shown. The server first checks for a grab of another client and then the
/// window, so the answer is either "already grabbed" or "not viewable"; nothing is ever grabbed, and the focused window
/// receives no event. Our own grab, while a consumed combination is held, does not count.
[[nodiscard]] bool x11KeyboardIsGrabbed(const InjectionGuard& guard);

} // namespace quillo
