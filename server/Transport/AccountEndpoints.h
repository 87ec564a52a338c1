#pragma once

#include "Accounts/AccountStore.h"
#include "Accounts/RateLimiter.h"
#include "Transport/Router.h"

#include <functional>
#include <memory>
#include <string>

namespace quillo::server {

/// Adds the account paths to `router`:
///
/// - POST /auth/anonymous with "device_id" (1 to 256 characters) signs in the anonymous user of that device.
/// - POST /oauth/token, also at /auth/oauth/token, with "grant_type" = "refresh_token" and "refresh_token".
/// - GET /auth/me and GET /users/me with a bearer token answer the user.
/// - DELETE /users/me with a bearer token removes the user and, by `removeData`, all that is kept of them.
/// - POST /users/me/device with a bearer token takes what the client says about its machine, of which nothing is kept.
///
/// Both of the first answer {"user": {"id", "email", "full_name", "is_anonymous"}, "tokens": {"access_token",
/// "refresh_token", "expires_in"}, "is_new_user"}. A refused token is 401 with "error" = "invalid_grant".
void addAccountEndpoints(Router& router, const std::shared_ptr<AccountStore>& accounts,
                         const std::shared_ptr<RateLimiter>& anonymousLimiter,
                         const std::function<void(const std::string& userId)>& removeData);

} // namespace quillo::server
