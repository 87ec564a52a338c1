#pragma once

#include "Platform/Pasteboard.h"

#include <memory>

namespace quillo {

/// The CLIPBOARD and PRIMARY selections, on a connection and a thread of their own. Nothing, with a log line, without
/// an X server. What was offered is on the clipboard while the object lives.
std::unique_ptr<Pasteboard> createX11Pasteboard();

} // namespace quillo
