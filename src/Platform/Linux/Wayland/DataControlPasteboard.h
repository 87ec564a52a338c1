#pragma once

#include "Platform/Pasteboard.h"

#include <memory>

namespace quillo {

/// The clipboard of a Wayland session, on a connection and a thread of its own; it needs neither a window nor the
/// focus. Nothing, with a log line, where the compositor does not allow that (GNOME). What was offered is on the
/// clipboard while the object lives. Who reads is not told.
std::unique_ptr<Pasteboard> createDataControlPasteboard();

} // namespace quillo
