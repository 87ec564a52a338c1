#include "Core/NotificationCenter.h"
#include "Core/ServerEnvironment.h"
#include "Services/Auth/AuthFailure.h"
#include "Services/Auth/AuthSession.h"
#include "Services/Auth/CallbackURL.h"

#include <QStringBuilder>

namespace quillo {

namespace {

constexpr auto flowLimit = std::chrono::seconds(120);

/// Enough of a value to distinguish two of them in a log, too little to use it.
QString beginning(const QString& value) { return value.left(4) % QStringLiteral("…"); }

bool isLoopback(const QUrl& url) {
    try {
        return ServerEnvironment(url.host().contains(u':') ? u'[' % url.host() % u']' : url.host(), true).isLoopback();
    } catch (const std::invalid_argument&) {
        return false;
    }
}

} // namespace

QUrl AuthSession::authorizationURL(const QString& page, const Flow& waiting) const {
    auto url = config.browserAuthBaseURL.isEmpty() ? config.authBaseURL : config.browserAuthBaseURL;
    const bool isSafe = url.scheme() == u"https" || (url.scheme() == u"http" && isLoopback(url));
    if (!url.isValid() || url.host().isEmpty() || !isSafe)
        return {};
    std::vector<std::pair<QString, QString>> items{
        {QStringLiteral("client_id"), AuthConfig::clientId},
        {QStringLiteral("redirect_uri"), AuthConfig::redirectURI},
        {QStringLiteral("response_type"), QStringLiteral("code")},
        {QStringLiteral("code_challenge"), waiting.pkce.codeChallenge},
        {QStringLiteral("code_challenge_method"), PKCE::name(PKCE::ChallengeMethod::S256)},
        {QStringLiteral("state"), waiting.state},
    };
    if (!waiting.anonymousUserId.isEmpty())
        items.emplace_back(QStringLiteral("anonymous_user_id"), waiting.anonymousUserId);
    QStringList query;
    for (const auto& [name, value] : items)
        query << name % u'=' % QString::fromLatin1(QUrl::toPercentEncoding(value));
    url.setPath(url.path() % page);
    url.setQuery(query.join(u'&'), QUrl::StrictMode);
    return url;
}

Task<> AuthSession::signIn(Self session, QString page) {
    // The browser page of an earlier sign-in may be lost, so a new request replaces it.
    session->endFlow(authFailure::cancelled());
    const Loading loading(session);
    auto [ends, sink] = AsyncStream<Outcome>::make(EventExecutor::main());
    const auto begun = std::make_shared<Flow>();
    begun->pkce = PKCE::makePair();
    begun->state = PKCE::makeState();
    begun->ended = sink;
    authLog(QStringLiteral("Generated PKCE pair, challenge: ") % beginning(begun->pkce.codeChallenge));
    authLog(QStringLiteral("Generated state: ") % beginning(begun->state));
    if (session->user && session->user->isAnonymous) {
        begun->anonymousUserId = session->user->id;
        authLog(QStringLiteral("Including anonymous_user_id in OAuth request for account merge"));
    }
    const auto url = session->authorizationURL(page, *begun);
    if (url.isEmpty()) {
        authLog(QStringLiteral("Failed to build authorization URL"), LogLevel::error);
        throw authFailure::badAuthorizationURL();
    }
    session->flow = begun;
    session->setupCallbackObserver();
    const auto limit = session->clock.callLater(flowLimit, [&waits = *session, begun] {
        if (waits.flow != begun || begun->hasCallback)
            return;
        authLog(QStringLiteral("Auth flow timeout after %1 seconds").arg(flowLimit.count()), LogLevel::warn);
        waits.endFlow(authFailure::timeout());
    });
    authLog(QStringLiteral("Opening auth URL in default browser: ") % callbackURL::redacted(url));
    if (session->config.openBrowser && session->config.openBrowser(url)) {
        authLog(QStringLiteral("Auth URL opened in default browser successfully"));
    } else {
        authLog(QStringLiteral("Failed to open URL in default browser"), LogLevel::error);
        if (session->flow == begun)
            session->endFlow(authFailure::browser());
    }
    const auto outcome = co_await ends.next();
    if (!outcome)
        throw authFailure::noCallback();
    if (outcome->error)
        throw AuthError(*outcome->error);
}

void AuthSession::endFlow(const std::optional<AuthError>& error) {
    const auto ended = std::exchange(flow, nullptr);
    if (!ended)
        return;
    removeCallbackObserver();
    if (error && error->isCancellation())
        authLog(QStringLiteral("Sign-in flow ended: ") % QString::fromUtf8(error->what()));
    ended->ended.yield({error});
    ended->ended.finish();
}

std::optional<AuthError> AuthSession::handleCallback(const QUrl& url) {
    authLog(QStringLiteral("Received callback URL: ") % callbackURL::redacted(url));
    const auto answer = callbackURL::parse(url);
    if (!answer) {
        authLog(QStringLiteral("Invalid callback URL"), LogLevel::warn);
        return authFailure::badCallback();
    }
    if (!answer->error.isEmpty())
        authLog(QStringLiteral("Server returned error: ") % answer->error % u' ' % answer->errorDescription,
                LogLevel::error);
    // A second or unexpected answer does not match the state.
    const auto answered = flow && !flow->hasCallback ? flow : nullptr;
    const auto fail = [&](const AuthError& error) {
        if (answered)
            endFlow(error);
        return error;
    };
    if (!answered || !callbackURL::equalInConstantTime(answer->state, answered->state)) {
        authLog(QStringLiteral("State mismatch - possible CSRF attack. Expected: ") %
                    (answered ? beginning(answered->state) : QStringLiteral("none")),
                LogLevel::error);
        return fail(authFailure::stateMismatch());
    }
    authLog(QStringLiteral("State verification passed"));
    // Trust the error text only if the state matches: any page can open such a URL.
    if (answer->error == u"access_denied")
        return fail(authFailure::cancelled());
    if (!answer->error.isEmpty())
        return fail(authFailure::server(answer->errorDescription.isEmpty() ? answer->error : answer->errorDescription));
    if (answer->code.isEmpty()) {
        authLog(QStringLiteral("No authorization code in callback"), LogLevel::error);
        return fail(authFailure::noCode());
    }
    answered->hasCallback = true;
    removeCallbackObserver();
    tasks.run(QStringLiteral("code exchange"), [session = shared_from_this(), answered, code = answer->code](
                                                   std::stop_token) { return finish(session, answered, code); });
    return std::nullopt;
}

void AuthSession::setupCallbackObserver() {
    removeCallbackObserver();
    callbackObserver =
        QObject::connect(&NotificationCenter::shared(), &NotificationCenter::posted, &NotificationCenter::shared(),
                         [weak = weak_from_this()](const QString& name, const QVariantMap& userInfo) {
                             if (name != notification::authCallback)
                                 return;
                             if (const auto session = weak.lock())
                                 session->handleCallback(userInfo.value(QStringLiteral("url")).toUrl());
                         });
    authLog(QStringLiteral("Callback observer setup for URL scheme"));
}

void AuthSession::removeCallbackObserver() { QObject::disconnect(callbackObserver); }

} // namespace quillo
