#include "Transport/SignInEndpoints.h"

#include "Accounts/Credentials.h"
#include "Accounts/PasswordHash.h"
#include "Foundation/FormFields.h"
#include "Foundation/Log.h"
#include "Foundation/Network.h"
#include "Pages/SignInPages.h"
#include "Transport/AuthorizationRequest.h"
#include "Transport/PageResponse.h"
#include "Transport/SignInTexts.h"

namespace quillo::server {
namespace {

constexpr uint64_t maxFormBytes = uint64_t{16} * 1024;
constexpr std::chrono::seconds busyWait{5};

/// One visit of a page: its request and the content of its form.
struct Visit {
    HttpRequest request;
    AuthorizationRequest authorization;
    bool isRegistration = false;
    std::string fullName;
    std::string email;
    std::string password;
};

std::string say(const HttpRequest& request, PageText text, std::string_view value = {}) {
    return pageText(text, pageLanguage(request.acceptLanguage), value);
}

HttpResponse showMessage(const HttpRequest& request, int status, PageText title, PageText text) {
    return pageResponse(status,
                        messagePage(say(request, title), say(request, text), pageLanguage(request.acceptLanguage)));
}

SignInForm formOf(const Visit& visit) {
    SignInForm form;
    form.language = pageLanguage(visit.request.acceptLanguage);
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
    auto response = pageResponse(status, signInPage(form));
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
    form.alert = say(visit.request, PageText::refused);
    form.isRefused = true;
    return show(services, visit, 401, std::move(form));
}

HttpResponse showWait(const SignInServices& services, const Visit& visit, int status, PageText cause,
                      std::chrono::seconds wait) {
    const auto seconds = std::to_string(wait.count());
    auto response = showAlert(services, visit, status,
                              say(visit.request, cause) + " " + say(visit.request, PageText::tryAgainIn, seconds));
    response.headers.emplace_back("Retry-After", seconds);
    return response;
}

/// The end of a visit: the callback address with a code.
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
    auto response = pageResponse(
        200, signedInPage(visit.authorization.callback(*code), isNew, pageLanguage(visit.request.acceptLanguage)));
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
        form.emailError = say(visit.request, PageText::emailTaken);
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

/// Checks a password, or creates an account, on a password worker.
Answer answerLater(const SignInServices& services, const Visit& visit) {
    const auto busy = [services, visit] { return showWait(services, visit, 503, PageText::busy, busyWait); };
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
        form.emailError = say(visit.request, visit.email.empty() ? PageText::emailMissing : PageText::emailInvalid);
    if (visit.password.empty())
        form.passwordError = say(visit.request, PageText::passwordMissing);
    if (!form.emailError.empty() || !form.passwordError.empty())
        return show(services, visit, 422, std::move(form));
    visit.email = *email;
    if (const auto wait = services.throttle->admit(visit.email, networkOf(visit.request.peer.address)))
        return showWait(services, visit, 429, PageText::tooManyAttempts, *wait);
    return answerLater(services, visit);
}

Answer submitRegistration(const SignInServices& services, Visit visit) {
    auto form = formOf(visit);
    const auto email = normalisedEmail(visit.email);
    if (!email)
        form.emailError = say(visit.request, visit.email.empty() ? PageText::emailMissing : PageText::emailInvalid);
    if (const auto objection = objectionToName(visit.fullName))
        form.nameError = say(visit.request, pageTextOf(*objection));
    if (const auto objection = objectionTo(visit.password, email.value_or("")))
        form.passwordError = say(visit.request, pageTextOf(*objection));
    if (!form.emailError.empty() || !form.nameError.empty() || !form.passwordError.empty())
        return show(services, visit, 422, std::move(form));
    visit.email = *email;
    if (const auto wait = services.registrations->admit(networkOf(visit.request.peer.address)))
        return showWait(services, visit, 429, PageText::tooManyAccounts, *wait);
    return answerLater(services, visit);
}

/// Parses the query, or returns the answer for an invalid one.
std::variant<Visit, HttpResponse> beginVisit(const SignInServices& services, const HttpRequest& request,
                                             bool isRegistration) {
    if (isRegistration && !services.registrations)
        return showMessage(request, 403, PageText::registrationClosedHeading, PageText::registrationClosed);
    auto read = readAuthorizationRequest(request.query);
    if (std::holds_alternative<UnknownClient>(read))
        return showMessage(request, 400, PageText::deadLinkHeading, PageText::deadLink);
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
        return showMessage(request, 400, PageText::failedHeading, PageText::formDamaged);
    switch (services.guard->check(request, fields->value("form_token"))) {
    case FormGuard::Verdict::foreign:
        return showMessage(request, 403, PageText::failedHeading, PageText::formForeign);
    case FormGuard::Verdict::expired:
        // Do not show any of its content: another site may have sent it.
        return showAlert(services, visit, 403, say(request, PageText::formExpired));
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
