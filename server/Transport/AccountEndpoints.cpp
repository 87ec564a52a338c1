#include "Transport/AccountEndpoints.h"

#include "Foundation/Log.h"

namespace quillo::server {
namespace {

constexpr size_t maxDeviceIdLength = 256;

HttpResponse badRequest(const std::string& detail) {
    return errorResponse(400, "invalid_request", "INVALID_REQUEST", detail);
}

Json describe(const User& user) {
    Json json{{"id", user.id}};
    json["email"] = user.email ? Json(*user.email) : Json();
    json["full_name"] = user.fullName ? Json(*user.fullName) : Json();
    json["is_anonymous"] = user.isAnonymous;
    return json;
}

HttpResponse answer(const Session& session) {
    Json body{{"user", describe(session.user)}};
    body["tokens"] = Json{{"access_token", session.tokens.access},
                          {"refresh_token", session.tokens.refresh},
                          {"expires_in", session.tokens.expiresIn.count()}};
    body["is_new_user"] = session.isNewUser;
    return {200, std::move(body), {}};
}

/// Wraps a handler of a JSON object: what is not one, or has a member of the wrong type, is the client's mistake.
template <class Handler>
Router::Handler withJsonBody(Handler handler) {
    return [handler = std::move(handler)](const HttpRequest& request) -> HttpResponse {
        const auto body = parseJson(request.body);
        if (!body || !body->is_object())
            return badRequest("The body must be a JSON object.");
        try {
            return handler(request, *body);
        } catch (const std::invalid_argument& error) {
            return badRequest(std::string(error.what()) + ".");
        }
    };
}

/// Wraps a handler of the user of the bearer token.
template <class Handler>
Router::Handler withUser(const std::shared_ptr<AccountStore>& accounts, Handler handler) {
    return [accounts, handler = std::move(handler)](const HttpRequest& request) -> HttpResponse {
        const auto bearer = request.bearerToken();
        const auto user = bearer ? accounts->userOf(*bearer) : std::nullopt;
        if (user)
            return handler(*user);
        auto response = errorResponse(401, "invalid_token", "INVALID_TOKEN",
                                      "The access token is missing, not valid or expired; refresh it.");
        response.headers.emplace_back("WWW-Authenticate", "Bearer");
        return response;
    };
}

} // namespace

void addAccountEndpoints(Router& router, const std::shared_ptr<AccountStore>& accounts,
                         const std::shared_ptr<RateLimiter>& anonymousLimiter,
                         const std::function<void(const std::string& userId)>& removeData) {
    const auto anonymous = withJsonBody([accounts, anonymousLimiter](const HttpRequest& request, const Json& body) {
        const auto deviceId = optionalString(body, "device_id").value_or("");
        if (deviceId.empty() || deviceId.size() > maxDeviceIdLength)
            return badRequest("\"device_id\" must be a string of 1 to 256 characters.");
        if (const auto wait = anonymousLimiter->admit(request.peer.address))
            return retryLater(429, "RATE_LIMITED", "Too many sign-ins from this address; wait and try again.", *wait);
        const Session session = accounts->signInAnonymously(deviceId);
        log(LogLevel::info, "accounts",
            "anonymous sign-in of user " + session.user.id + (session.isNewUser ? " (new)" : ""));
        return answer(session);
    });
    // Below the API's base, where the client's own calls go, and at the root.
    router.add("POST", "/api/v1/auth/anonymous", {.handler = anonymous});
    router.add("POST", "/auth/anonymous", {.handler = anonymous});

    const auto token = withJsonBody([accounts](const HttpRequest&, const Json& body) {
        if (optionalString(body, "grant_type").value_or("") != "refresh_token")
            return errorResponse(400, "unsupported_grant_type", "UNSUPPORTED_GRANT_TYPE",
                                 "\"grant_type\" must be \"refresh_token\".");
        const auto refreshToken = optionalString(body, "refresh_token");
        if (!refreshToken)
            return badRequest("\"refresh_token\" is missing.");
        const auto session = accounts->refresh(*refreshToken);
        if (!session)
            return errorResponse(401, "invalid_grant", "INVALID_REFRESH_TOKEN",
                                 "The refresh token is not valid any more; sign in again.");
        return answer(*session);
    });
    router.add("POST", "/oauth/token", {.handler = token});
    router.add("POST", "/auth/oauth/token", {.handler = token});

    const auto me = withUser(accounts, [](const User& user) { return HttpResponse{200, describe(user), {}}; });
    const auto removeMe = withUser(accounts, [accounts, removeData](const User& user) {
        // The account last: while it exists, a removal that was cut off can be asked for again.
        removeData(user.id);
        accounts->remove(user.id);
        log(LogLevel::info, "accounts", "user " + user.id + " and all of their data removed");
        return HttpResponse{200, Json{{"status", "deleted"}}, {}};
    });
    const auto device = withUser(accounts, [](const User&) { return HttpResponse{200, Json{{"status", "ok"}}, {}}; });
    for (const std::string base : {"/api/v1", ""}) {
        router.add("GET", base + "/auth/me", {.handler = me});
        router.add("GET", base + "/users/me", {.handler = me});
        router.add("DELETE", base + "/users/me", {.handler = removeMe});
        router.add("POST", base + "/users/me/device", {.handler = device});
        router.add("PUT", base + "/users/me/device", {.handler = device});
    }

    router.add("GET", "/health",
               {.handler =
                    [](const HttpRequest&) {
                        return HttpResponse{200, Json{{"status", "ok"}, {"version", QUILLO_VERSION}}, {}};
                    },
                .isPublic = true});
}

} // namespace quillo::server
