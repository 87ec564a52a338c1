#include "Services/Auth/AuthSession.h"

#include "Core/Json.h"
#include "Core/NotificationCenter.h"
#include "Services/Auth/AuthFailure.h"

#include <QStringBuilder>
#include <QSysInfo>

namespace quillo {

void authLog(const QString& message, LogLevel level, std::source_location where) {
    appLog(message, level, QStringLiteral("Auth"), where);
}

AuthSession::AuthSession(AuthConfig settings, Clock& time)
    : config(std::move(settings)), clock(time), http(config.prepareRequest),
      tasks([](const QString& name, const QString& error) { authLog(name % u": " % error, LogLevel::error); }) {}

AuthSession::Loading::Loading(Self session) : m_session(std::move(session)) {
    if (++m_session->loading == 1)
        m_session->changed();
}

AuthSession::Loading::~Loading() {
    if (--m_session->loading == 0)
        m_session->changed();
}

QUrl AuthSession::authURL(const QString& path) const {
    auto url = config.authBaseURL;
    url.setPath(url.path() + path);
    return url;
}

QUrl AuthSession::apiURL(const QString& path) const {
    auto url = config.apiBaseURL;
    url.setPath(url.path() + path);
    return url;
}

void AuthSession::changed() {
    // An observer may remove another one.
    for (auto next = observers.begin(); next != observers.end();) {
        const auto id = next->first;
        const auto observer = next->second;
        observer();
        next = observers.upper_bound(id);
    }
}

void AuthSession::setUser(const std::optional<AuthUser>& other) {
    const bool isSame = user == other && isAuthenticated == other.has_value();
    const bool isAnother = user != other;
    isAuthenticated = other.has_value();
    user = other;
    if (!isSame)
        changed();
    if (isAnother)
        NotificationCenter::shared().post(notification::authUserDidChange);
}

void AuthSession::beginAnother() {
    ++generation;
    isExpired = false;
    refreshing.reset();
    creatingAnonymous.reset();
}

void AuthSession::expire() {
    // An anonymous session contains nothing that signing in again could restore.
    if (user && !user->isAnonymous && !std::exchange(isExpired, true))
        changed();
}

void AuthSession::adopt(const AuthResponse& response) {
    beginAnother();
    storeTokens(response.tokens);
    config.tokenStorage->setUserData(authCoding::encode(response.user));
    authLog(QStringLiteral("Tokens stored in keychain"));
    authLog(QStringLiteral("Authentication successful for user: ") % response.user.id);
    isNewUser = response.isNewUser;
    isAuthenticated = true;
    user = response.user;
    changed();
    // Also when the same user signs in again, because the tokens are new.
    NotificationCenter::shared().post(notification::authUserDidChange);
    tasks.run(QStringLiteral("device record"),
              [session = shared_from_this()](std::stop_token) { return syncDevice(session); });
}

void AuthSession::storeTokens(const AuthTokens& tokens) const {
    config.tokenStorage->setAccessToken(tokens.accessToken);
    config.tokenStorage->setRefreshToken(tokens.refreshToken);
    // If the server gave no lifetime, only a refusal shows that the token has expired.
    config.tokenStorage->setAccessTokenExpiresAt(
        tokens.expiresIn >= 0 ? std::optional(clock.wallTime().addSecs(tokens.expiresIn)) : std::nullopt);
}

bool AuthSession::isTokenExpired() const {
    const auto expiry = config.tokenStorage->accessTokenExpiresAt();
    return expiry && *expiry <= clock.wallTime();
}

void AuthSession::end() {
    beginAnother();
    endFlow(authFailure::cancelled());
    config.tokenStorage->clear();
    isNewUser = false;
    setUser(std::nullopt);
}

QString AuthSession::deviceId() const {
    // The id opens an anonymous session, so log only its beginning.
    const auto shown = [](const QString& id) -> QString { return id.left(8) % QStringLiteral("…"); };
    if (const auto stored = config.tokenStorage->deviceId();
        stored && !stored->isEmpty() && !config.device.isComputable(*stored)) {
        authLog(QStringLiteral("Using existing device_id: ") % shown(*stored));
        return *stored;
    }
    QString made;
    if (const auto hardware = config.device.hardwareUUID()) {
        made = *hardware;
        authLog(QStringLiteral("Generated device_id from hardware UUID: ") % shown(made));
    } else {
        made = makeUUIDVersion7(clock.wallTime());
        authLog(QStringLiteral("Hardware UUID unavailable — generated random UUID v7: ") % shown(made));
    }
    config.tokenStorage->setDeviceId(made);
    return made;
}

QByteArray AuthSession::deviceRecord() const {
    const auto id = deviceId();
    json::Json json;
    json["device_id"] = json::of(id);
    // The word by which the servers know the desktop program; see docs/compatibility.md.
    json["platform"] = "macos";
    json["app_version"] = json::of(config.clientVersion);
    json["os_version"] = json::of(QSysInfo::prettyProductName());
    json["device_fingerprint"] = json::of(config.device.fingerprint(id));
    return json::encode(json);
}

Task<> AuthSession::share(Self session, Shared AuthSession::*slot, Task<> (*request)(Self)) {
    if (const auto running = (*session).*slot) {
        auto [outcomes, sink] = AsyncStream<Outcome>::make(EventExecutor::main());
        running->waiting.push_back(sink);
        const auto outcome = co_await outcomes.next();
        if (outcome && outcome->error)
            throw AuthError(*outcome->error);
        co_return;
    }
    // The end of the session empties the slot; later callers make a new request.
    const auto running = std::make_shared<SharedRequest>();
    (*session).*slot = running;
    Outcome outcome;
    try {
        co_await request(session);
    } catch (const AuthError& error) {
        outcome.error = error;
    }
    if ((*session).*slot == running)
        ((*session).*slot).reset();
    for (const auto& sink : running->waiting) {
        sink.yield(outcome);
        sink.finish();
    }
    if (outcome.error)
        throw AuthError(*outcome.error);
}

} // namespace quillo
