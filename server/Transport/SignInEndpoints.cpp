#include "Transport/SignInEndpoints.h"

#include "Accounts/Credentials.h"
#include "Accounts/PasswordHash.h"
#include "Foundation/FormFields.h"
#include "Foundation/Log.h"
#include "Pages/SignInPages.h"
#include "Transport/AuthorizationRequest.h"
#include "Transport/PageResponse.h"

namespace quillo::server {
namespace {

constexpr uint64_t maxFormBytes = uint64_t{16} * 1024;
constexpr std::chrono::seconds busyWait{5};

/// One visit of a page: what it asks for, and what its form holds.
struct Visit {
    HttpRequest request;
    AuthorizationRequest authorization;
    bool isRegistration = false;
    std::string fullName;
    std::string email;
    std::string password;
};

SignInForm formOf(const Visit& visit) {
    SignInForm form;
    form.isRegistration = visit.isRegistration;
    form.query = visit.authorization.query();
    form.cancelUrl = visit.authorization.refusal("access_denied", "The sign-in was cancelled.");
    form.fullName = visit.fullName;
    form.email = visit.email;
    return form;
}

HttpResponse show(const SignInServices& services, const Visit& visit, int status, SignInForm form) {
    const auto pass = services.guard->issue(visit.request);
    form.token = pass.token;
    auto response = pageResponse(visit.request, status, signInPage(form));
    response.headers.emplace_back("Set-Cookie", pass.cookie);
    return response;
}

HttpResponse showAlert(const SignInServices& services, const Visit& visit, int status, const std::string& alert) {
    auto form = formOf(visit);
    form.alert = alert;
    return show(services, visit, status, std::move(form));
}

HttpResponse showRefused(const SignInServices& services, const Visit& visit) {
    auto form = formOf(visit);
    form.alert = "The e-mail address or the password is not right.";
    form.isRefused = true;
    return show(services, visit, 401, std::move(form));
}

HttpResponse showWait(const SignInServices& services, const Visit& visit, int status, const std::string& cause,
                      std::chrono::seconds wait) {
    const auto count = wait.count();
    auto response =
        showAlert(services, visit, status,
                  cause + " Try again in " + std::to_string(count) + (count == 1 ? " second." : " seconds."));
    response.headers.emplace_back("Retry-After", std::to_string(count));
    return response;
}

/// The end of a visit: a code, and the way back with it.
HttpResponse finish(const SignInServices& services, const Visit& visit, const Credentials& credentials, bool isNew) {
    CodeGrant grant;
    grant.userId = credentials.userId;
    grant.clientId = oauthClientId;
    grant.redirectUri = oauthRedirectUri;
    grant.challenge = visit.authorization.challenge;
    grant.anonymousUserId = visit.authorization.anonymousUserId;
    grant.isNewUser = isNew;
    const auto code = services.accounts->issueCode(grant, credentials.passwordHash);
    if (!code)
        return showRefused(services, visit);
    log(LogLevel::info, "accounts", "sign-in of user " + credentials.userId + (isNew ? " (new)" : ""));
    auto response = pageResponse(visit.request, 200, signedInPage(visit.authorization.callback(*code), isNew));
    response.headers.emplace_back("Set-Cookie", services.guard->ending(visit.request));
    return response;
}

HttpResponse signIn(const SignInServices& services, const Visit& visit) {
    auto credentials = services.accounts->credentialsOf(visit.email);
    const bool isRight =
        verifyPassword(visit.password, credentials ? credentials->passwordHash : unknownAccountHash()) && credentials;
    if (!isRight) {
        log(LogLevel::warning, "accounts", "a sign-in from " + visit.request.peer.address + " was refused");
        return showRefused(services, visit);
    }
    services.throttle->succeeded(visit.email, networkOf(visit.request.peer.address));
    if (needsRehash(credentials->passwordHash)) {
        const std::string stronger = hashPassword(visit.password);
        services.accounts->replaceHash(*credentials, stronger);
        credentials->passwordHash = stronger;
    }
    return finish(services, visit, *credentials, false);
}

HttpResponse makeAccount(const SignInServices& services, const Visit& visit) {
    const auto taken = [&] {
        auto form = formOf(visit);
        form.emailError = "There is an account with this e-mail address already. Sign in below instead.";
        return show(services, visit, 409, std::move(form));
    };
    if (services.accounts->credentialsOf(visit.email))
        return taken();
    const std::string hash = hashPassword(visit.password);
    const auto user = services.accounts->addAccount(visit.email, visit.fullName, hash);
    if (!user)
        return taken();
    return finish(services, visit, {user->id, hash}, true);
}

/// Judges a password, or makes an account, on a thread of its own kind.
Answer answerLater(const SignInServices& services, const Visit& visit) {
    const auto busy = [services, visit] { return showWait(services, visit, 503, "The server is busy.", busyWait); };
    LaterResponse later;
    later.whenReady = [services, visit, busy](const LaterResponse::Done& done) {
        const auto judge = [services, visit, done] {
            done(Router::guard<HttpResponse>(visit.request, [&] {
                return visit.isRegistration ? makeAccount(services, visit) : signIn(services, visit);
            }));
        };
        if (!services.workers->submit(judge))
            done(busy());
    };
    later.late = busy();
    return later;
}

Answer submitSignIn(const SignInServices& services, Visit visit) {
    auto form = formOf(visit);
    const auto email = normalisedEmail(visit.email);
    if (!email)
        form.emailError = visit.email.empty() ? "Enter your e-mail address." : "This is not an e-mail address.";
    if (visit.password.empty())
        form.passwordError = "Enter your password.";
    if (!form.emailError.empty() || !form.passwordError.empty())
        return show(services, visit, 422, std::move(form));
    visit.email = *email;
    if (const auto wait = services.throttle->admit(visit.email, networkOf(visit.request.peer.address)))
        return showWait(services, visit, 429, "There were too many attempts.", *wait);
    return answerLater(services, visit);
}

Answer submitRegistration(const SignInServices& services, Visit visit) {
    auto form = formOf(visit);
    const auto email = normalisedEmail(visit.email);
    if (!email)
        form.emailError = visit.email.empty() ? "Enter your e-mail address." : "This is not an e-mail address.";
    form.nameError = objectionToName(visit.fullName).value_or("");
    form.passwordError = objectionTo(visit.password, email.value_or("")).value_or("");
    if (!form.emailError.empty() || !form.nameError.empty() || !form.passwordError.empty())
        return show(services, visit, 422, std::move(form));
    visit.email = *email;
    if (const auto wait = services.registrations->admit(networkOf(visit.request.peer.address)))
        return showWait(services, visit, 429, "Too many accounts were made from your network.", *wait);
    return answerLater(services, visit);
}

/// Reads the query, or says what is to be answered instead.
std::variant<Visit, HttpResponse> beginVisit(const SignInServices& services, const HttpRequest& request,
                                             bool isRegistration) {
    if (isForeignHost(request, services.hosts))
        return pageResponse(request, 421, messagePage("Wrong address", "Open this page from Quillo."));
    auto read = readAuthorizationRequest(request.query);
    if (const auto* unknown = std::get_if<UnknownClient>(&read))
        return pageResponse(request, 400,
                            messagePage("This link does not work", unknown->reason + " Start the sign-in in Quillo."));
    if (const auto* refused = std::get_if<RefusedRequest>(&read))
        return redirectResponse(request, refused->callback);
    Visit visit;
    visit.request = request;
    visit.request.body.clear();
    visit.authorization = std::get<AuthorizationRequest>(std::move(read));
    visit.isRegistration = isRegistration;
    return visit;
}

Answer submit(const SignInServices& services, const HttpRequest& request, bool isRegistration) {
    auto begun = beginVisit(services, request, isRegistration);
    if (auto* answer = std::get_if<HttpResponse>(&begun))
        return std::move(*answer);
    Visit visit = std::get<Visit>(std::move(begun));
    const auto fields = FormFields::parse(request.body);
    if (!fields)
        return pageResponse(request, 400,
                            messagePage("This did not work", "The form arrived damaged; go back and send "
                                                             "it again."));
    switch (services.guard->check(request, fields->value("form_token"))) {
    case FormGuard::Verdict::foreign:
        return pageResponse(
            request, 403,
            messagePage("This did not work", "The form was not sent from this page. Start the sign-in in Quillo."));
    case FormGuard::Verdict::expired:
        // Nothing that came with it is shown: another site may have sent it.
        return showAlert(services, visit, 403,
                         "This page was open for too long, or your browser keeps no cookies for it. Please enter "
                         "everything again.");
    case FormGuard::Verdict::genuine:
        break;
    }
    visit.fullName = fields->value("full_name");
    visit.email = fields->value("email");
    visit.password = fields->value("password");
    return isRegistration ? submitRegistration(services, std::move(visit)) : submitSignIn(services, std::move(visit));
}

} // namespace

void addSignInEndpoints(Router& router, const SignInServices& services) {
    for (const bool isRegistration : {false, true}) {
        const std::string path = isRegistration ? "/auth/register" : "/auth/login";
        Router::Route get;
        get.isPage = true;
        get.handler = [services, isRegistration](const HttpRequest& request) -> Answer {
            auto begun = beginVisit(services, request, isRegistration);
            if (auto* answer = std::get_if<HttpResponse>(&begun))
                return std::move(*answer);
            const auto& visit = std::get<Visit>(begun);
            return show(services, visit, 200, formOf(visit));
        };
        router.add("GET", path, get);
        Router::Route post;
        post.isPage = true;
        post.maxBodyBytes = maxFormBytes;
        post.contentType = "application/x-www-form-urlencoded";
        post.handler = [services, isRegistration](const HttpRequest& request) {
            return submit(services, request, isRegistration);
        };
        router.add("POST", path, post);
    }
}

} // namespace quillo::server
