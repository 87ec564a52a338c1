#pragma once

#include "Platform/Pasteboard.h"

#include <memory>

namespace quillo {

/// The CLIPBOARD and PRIMARY selections, on their own connection and thread. Null, with a log line, without an X
/// server. Offered content stays on the clipboard as long as the object lives.
std::unique_ptr<Pasteboard> createX11Pasteboard();

} // namespace quillo
