#pragma once

#include "Accounts/AccountStore.h"
#include "Accounts/RateLimiter.h"
#include "Transport/Router.h"

#include <memory>

namespace quillo::server {

/// Adds the account paths to `router`:
///
/// - POST /auth/anonymous with "device_id" (1 to 256 characters) signs in the anonymous user of that device.
/// - POST /oauth/token, also at /auth/oauth/token, with "grant_type" = "refresh_token" and "refresh_token".
/// - GET /auth/me with a bearer token answers the user.
///
/// Both of the first answer {"user": {"id", "email", "full_name", "is_anonymous"}, "tokens": {"access_token",
/// "refresh_token", "expires_in"}, "is_new_user"}. A refused token is 401 with "error" = "invalid_grant".
void addAccountEndpoints(Router& router, const std::shared_ptr<AccountStore>& accounts,
                         const std::shared_ptr<RateLimiter>& anonymousLimiter);

} // namespace quillo::server
