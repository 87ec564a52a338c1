#include "Transport/AccountEndpoints.h"

#include "Foundation/Log.h"
#include "Foundation/Network.h"
#include "Transport/AuthorizationRequest.h"

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

/// Wraps a handler of a JSON object: anything else, or a member of the wrong type, is a client error.
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

/// Wraps a handler that needs the user of the bearer token.
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

HttpResponse refresh(AccountStore& accounts, const Json& body) {
    const auto refreshToken = optionalString(body, "refresh_token");
    if (!refreshToken)
        return badRequest("\"refresh_token\" is missing.");
    if (optionalString(body, "client_id").value_or(oauthClientId) != oauthClientId)
        return errorResponse(400, "invalid_client", "INVALID_CLIENT", "\"client_id\" is not known to this server.");
    const auto session = accounts.refresh(*refreshToken);
    if (!session)
        return errorResponse(401, "invalid_grant", "INVALID_REFRESH_TOKEN",
                             "The refresh token is not valid any more; sign in again.");
    return answer(*session);
}

HttpResponse exchangeCode(AccountStore& accounts, const UserData& data, const HttpRequest& request, const Json& body) {
    CodeExchange exchange;
    exchange.code = optionalString(body, "code").value_or("");
    exchange.clientId = optionalString(body, "client_id").value_or("");
    exchange.redirectUri = optionalString(body, "redirect_uri").value_or("");
    exchange.verifier = optionalString(body, "code_verifier").value_or("");
    exchange.anonymousToken = request.bearerToken().value_or("");
    if (exchange.code.empty() || !isCodeVerifier(exchange.verifier))
        return badRequest("\"code\" and \"code_verifier\" (43 to 128 characters) are needed.");
    const auto redeemed = accounts.redeem(exchange);
    if (!redeemed)
        return errorResponse(400, "invalid_grant", "INVALID_CODE",
                             "The code is not valid any more, or was given for something else; sign in again.");
    if (redeemed->mergedUser) {
        const Merge merge{*redeemed->mergedUser, redeemed->session.user.id};
        // The sign-in succeeds anyway; data that could not be moved now is moved at the next start.
        try {
            data.move(merge);
            accounts.finishMerge(merge.from);
            log(LogLevel::info, "accounts", "anonymous user " + merge.from + " became part of user " + merge.to);
        } catch (const std::exception& error) {
            log(LogLevel::error, "accounts",
                "the data of user " + merge.from + " could not be moved yet: " + std::string(error.what()));
        }
    }
    return answer(redeemed->session);
}

} // namespace

void addAccountEndpoints(Router& router, const std::shared_ptr<AccountStore>& accounts,
                         const std::shared_ptr<RateLimiter>& anonymousLimiter, const UserData& data) {
    const auto anonymous = withJsonBody([accounts, anonymousLimiter](const HttpRequest& request, const Json& body) {
        if (!anonymousLimiter)
            return errorResponse(403, "access_denied", "ANONYMOUS_REFUSED",
                                 "This server serves people with an account; sign in.");
        const auto deviceId = optionalString(body, "device_id").value_or("");
        if (deviceId.empty() || deviceId.size() > maxDeviceIdLength)
            return badRequest("\"device_id\" must be a string of 1 to 256 characters.");
        if (const auto wait = anonymousLimiter->admit(networkOf(request.peer.address)))
            return retryLater(429, "RATE_LIMITED", "Too many sign-ins from this address; wait and try again.", *wait);
        const Session session = accounts->signInAnonymously(deviceId);
        log(LogLevel::info, "accounts",
            "anonymous sign-in of user " + session.user.id + (session.isNewUser ? " (new)" : ""));
        return answer(session);
    });
    // Below the API's base, where the client's own calls go, and at the root.
    router.add("POST", "/api/v1/auth/anonymous", {.handler = anonymous});
    router.add("POST", "/auth/anonymous", {.handler = anonymous});

    const auto token = withJsonBody([accounts, data](const HttpRequest& request, const Json& body) {
        const auto grant = optionalString(body, "grant_type").value_or("");
        if (grant == "refresh_token")
            return refresh(*accounts, body);
        if (grant == "authorization_code")
            return exchangeCode(*accounts, data, request, body);
        return errorResponse(400, "unsupported_grant_type", "UNSUPPORTED_GRANT_TYPE",
                             "\"grant_type\" must be \"authorization_code\" or \"refresh_token\".");
    });
    router.add("POST", "/oauth/token", {.handler = token});
    router.add("POST", "/auth/oauth/token", {.handler = token});

    const auto me = withUser(accounts, [](const User& user) { return HttpResponse{200, describe(user), {}}; });
    const auto removeMe = withUser(accounts, [accounts, data](const User& user) {
        // Delete the account last: while it exists, an interrupted removal can be repeated.
        data.remove(user.id);
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
}

} // namespace quillo::server
