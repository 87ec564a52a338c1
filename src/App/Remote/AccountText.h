#pragma once

#include "Features/Application/AccountState.h"

namespace quillo {

/// The account state as text for a terminal, with a second line when a sign-in is running or has failed.
[[nodiscard]] QString accountText(const AccountState& account);

} // namespace quillo
