#pragma once

#include "Features/Application/AccountState.h"

namespace quillo {

/// Who is signed in, in words for a terminal; a line more when a sign-in is under way or has failed.
[[nodiscard]] QString accountText(const AccountState& account);

} // namespace quillo
