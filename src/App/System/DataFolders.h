#pragma once

#include "Core/UserMessage.h"

#include <optional>

namespace quillo {

/// If the home folder cannot be written, moves the data of this process and its server to the session's runtime folder.
/// The data is lost at the end of the session, but kept until then. Sets XDG_DATA_HOME and XDG_STATE_HOME, so call it
/// before anything asks for a folder. Returns the notice for the user; nothing when nothing was moved.
std::optional<UserMessage> leaveReadOnlyHome();

} // namespace quillo
