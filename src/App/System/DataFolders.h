#pragma once

#include "Core/UserMessage.h"

#include <optional>

namespace quillo {

/// Moves what this process and its server keep to the session's runtime folder when the home cannot be written: it is
/// gone with the session then, but what is said until then is kept. To be called before anything asks for a folder;
/// sets XDG_DATA_HOME and XDG_STATE_HOME. Returns the notice for the user; nothing when nothing
/// had to be moved.
std::optional<UserMessage> leaveReadOnlyHome();

} // namespace quillo
