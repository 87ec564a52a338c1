#pragma once

#include "Platform/Linux/X11/InjectionGuard.h"

namespace quillo {

/// Whether another client has grabbed the keyboard for itself, as password prompts do. Main thread, well under a
/// millisecond; false without an X server.
///
/// Found out by asking for a grab on a window that is not shown: the server looks for a grab of another client first
/// and at the window next, so the answer is either "already grabbed" or "not viewable", and nothing is ever grabbed or
/// told to the focused window. Our own grab, while a consumed combination is held, is not counted.
[[nodiscard]] bool x11KeyboardIsGrabbed(const InjectionGuard& guard);

} // namespace quillo
