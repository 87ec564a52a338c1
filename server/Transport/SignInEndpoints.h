#pragma once

#include "Accounts/AccountStore.h"
#include "Accounts/PasswordWorkers.h"
#include "Accounts/RateLimiter.h"
#include "Accounts/SignInThrottle.h"
#include "Transport/FormGuard.h"
#include "Transport/Router.h"

#include <memory>

namespace quillo::server {

struct SignInServices {
    std::shared_ptr<AccountStore> accounts;
    std::shared_ptr<PasswordWorkers> workers;
    std::shared_ptr<SignInThrottle> throttle;
    std::shared_ptr<RateLimiter> registrations; ///< by network; null while registration is closed
    std::shared_ptr<FormGuard> guard;
};

/// Adds the pages GET /auth/login and /auth/register, whose forms are posted to the same paths. The query is an
/// authorization request (AuthorizationRequest.h). After signing in, the user gets a page that leads back to the
/// application with a code. There is no browser session: every sign-in asks for the password.
void addSignInEndpoints(Router& router, const SignInServices& services);

} // namespace quillo::server
