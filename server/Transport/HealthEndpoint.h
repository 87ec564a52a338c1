#pragma once

#include "Transport/ConnectionContext.h"

namespace quillo::server {

/// Adds GET /health, which needs neither TLS nor token: {"status", "version", "database", "recogniser"}. "status" is
/// "ok" with 200; or, with 503, "failing" when one of the two others is not "ok", or "draining" while the server stops.
void addHealthEndpoint(ConnectionContext& context);

} // namespace quillo::server
