#pragma once

#include "Transport/ConnectionContext.h"

namespace quillo::server {

/// Adds GET /health, which needs neither TLS nor token: {"status", "version", "database", "recogniser", "languages"};
/// "languages" is a list of ISO 639-1 codes, absent when the recogniser cannot say what it understands. "status" is
/// "ok" with 200; or, with 503, "failing" when one of the two others is not "ok", or "draining" while the server stops.
void addHealthEndpoint(ConnectionContext& context);

} // namespace quillo::server
