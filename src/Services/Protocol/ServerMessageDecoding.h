#pragma once

#include "Services/Protocol/ServerResponse.h"
#include "Services/Protocol/SessionTexts.h"

#include <QStringList>

namespace quillo {

/// Turns `response` into its event, updates `texts`, and appends log lines to `lines`. Any thread.
ServerMessage decodeServerMessage(const ServerResponse& response, SessionTexts& texts, QStringList& lines);

} // namespace quillo
