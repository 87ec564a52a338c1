#pragma once

#include "Accounts/AccountStore.h"
#include "Accounts/RateLimiter.h"
#include "Transport/Router.h"

#include <functional>
#include <memory>
#include <string>

namespace quillo::server {

/// The users' data outside their accounts. Called on threads that may block.
struct UserData {
    std::function<void(const std::string& userId)> remove;
    std::function<void(const Merge& merge)> move;
};

/// Adds the account paths to `router`:
///
/// - POST /auth/anonymous with "device_id" (1 to 256 characters) signs in the anonymous user of that device; without
///   `anonymousLimiter` it is refused with 403.
/// - POST /oauth/token, also at /auth/oauth/token, with "grant_type" = "refresh_token" and "refresh_token", or with
///   "grant_type" = "authorization_code", "code", "code_verifier", "redirect_uri" and "client_id". With the latter, a
///   bearer token of the anonymous user given to the sign-in page moves that user's data to the account.
/// - GET /auth/me and GET /users/me with a bearer token answer the user.
/// - DELETE /users/me with a bearer token removes the user and, through `data`, all their data.
/// - POST /users/me/device with a bearer token accepts the client's description of its machine, which is not stored.
///
/// The first two answer {"user": {"id", "email", "full_name", "is_anonymous"}, "tokens": {"access_token",
/// "refresh_token", "expires_in"}, "is_new_user"}. A refused refresh token is 401 with "error" = "invalid_grant", a
/// refused code 400.
void addAccountEndpoints(Router& router, const std::shared_ptr<AccountStore>& accounts,
                         const std::shared_ptr<RateLimiter>& anonymousLimiter, const UserData& data);

} // namespace quillo::server
