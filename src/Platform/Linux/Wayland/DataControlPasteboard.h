#pragma once

#include "Platform/Pasteboard.h"

#include <memory>

namespace quillo {

/// The clipboard of a Wayland session, on its own connection and thread; needs neither a window nor the focus. Returns
/// null, with a log line, where the compositor does not allow that (GNOME). Offered content stays on the clipboard as
/// long as the object lives. Readers are not identified.
std::unique_ptr<Pasteboard> createDataControlPasteboard();

} // namespace quillo
