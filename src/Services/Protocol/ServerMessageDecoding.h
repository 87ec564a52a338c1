#pragma once

#include "Services/Protocol/ServerResponse.h"
#include "Services/Protocol/SessionTexts.h"

#include <QStringList>

namespace quillo {

/// Turns `response` into its event and writes what it says about the session into `texts`. The lines to log are
/// appended to `lines`. Any thread.
ServerMessage decodeServerMessage(const ServerResponse& response, SessionTexts& texts, QStringList& lines);

} // namespace quillo
