#pragma once

#include <QString>

namespace quillo {

/// Moves what this process and its server keep to the session's runtime folder when the home cannot be written: it is
/// gone with the session then, but what is said until then is kept. To be called before anything asks for a folder;
/// sets XDG_DATA_HOME and XDG_STATE_HOME. Returns what to tell the user; empty when nothing had to be moved.
QString leaveReadOnlyHome();

} // namespace quillo
