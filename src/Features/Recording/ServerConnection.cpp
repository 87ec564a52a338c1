#include "Features/Recording/ServerConnection.h"

#include "Features/Recording/ConnectionTurn.h"

namespace quillo::serverConnection {

namespace {

using namespace std::chrono_literals;

constexpr Clock::Duration webSocketConnectTimeout = 10s;
/// A token that expires within this time is refreshed first, so that it stays valid during the handshake on a slow
/// network.
constexpr int expiryMarginSeconds = 60;

/// The server could not be reached: the dictation is transcribed later.
ConnectFailure unreachable(const QString& error) { return {error, std::nullopt}; }

/// The server refused: the user has to act.
ConnectFailure rejected(const QString& error, const QString& reason, bool needsSignIn) {
    return {error, ServerRefusal{.error = RecordingError::ConnectionFailed{error, needsSignIn},
                                 .reason = QStringLiteral("failed(%1)").arg(reason),
                                 .pendingReason = QStringLiteral("connection_failed"),
                                 .needsSignIn = needsSignIn}};
}

/// The result of a refresh: it worked, the server rejected the session, or the server could not be reached.
struct Refresh {
    enum class Outcome { refreshed, rejected, unreachable } outcome = Outcome::refreshed;
    QString error;
};

Task<Refresh> refreshToken(RunHandle run) {
    Refresh result;
    try {
        co_await run->services.auth.refreshAccessToken();
    } catch (const AuthError& error) {
        result.outcome = error.isAuthenticationError() ? Refresh::Outcome::rejected : Refresh::Outcome::unreachable;
        result.error = QString::fromUtf8(error.what());
    }
    const auto user = run->services.auth.currentUser();
    if (result.outcome != Refresh::Outcome::rejected || (user && !user->isAnonymous))
        co_return result;
    // An anonymous session holds nothing that signing in again could bring back: a new one serves as well.
    try {
        co_await run->services.auth.createAnonymousSession();
        result.outcome = Refresh::Outcome::refreshed;
    } catch (const AuthError& error) {
        recordingLog(QStringLiteral("⚠️ No new anonymous session: %1").arg(QString::fromUtf8(error.what())),
                     LogLevel::warn);
    }
    co_return result;
}

ConnectFailure refreshFailure(const Refresh& refresh, const QString& circumstance) {
    if (refresh.outcome == Refresh::Outcome::rejected) {
        recordingLog(QStringLiteral("🔒 Token refresh failed %1 (auth error). Forcing re-auth. Error: %2")
                         .arg(circumstance, refresh.error),
                     LogLevel::error);
        return rejected(refresh.error, QStringLiteral("auth_required"), true);
    }
    recordingLog(QStringLiteral("⚠️ Token refresh failed %1 (non-auth error). Keeping session and aborting this "
                                "recording. Error: %2")
                     .arg(circumstance, refresh.error),
                 LogLevel::warn);
    return unreachable(refresh.error);
}

Task<std::optional<ConnectFailure>> ensureValidAccessTokenIfNeeded(RunHandle run) {
    auto& storage = run->services.tokenStorage;
    if (!storage.accessToken()) {
        std::optional<AuthError> refused;
        try {
            co_await run->services.auth.createAnonymousSession();
        } catch (const AuthError& error) {
            refused = error;
        }
        if (storage.accessToken())
            co_return std::nullopt;
        const auto error = refused ? QString::fromUtf8(refused->what()) : QStringLiteral("no access token");
        if (refused && !refused->isAuthenticationError()) {
            recordingLog(QStringLiteral("⚠️ No access token, and none can be obtained now: %1").arg(error),
                         LogLevel::warn);
            co_return unreachable(error);
        }
        recordingLog(QStringLiteral("🔒 No access token available. Forcing re-auth..."), LogLevel::error);
        co_return rejected(error, QStringLiteral("no_access_token"), true);
    }
    const auto expiresAt = storage.accessTokenExpiresAt();
    if (!expiresAt || run->services.clock.wallTime().secsTo(*expiresAt) > expiryMarginSeconds)
        co_return std::nullopt;
    recordingLog(QStringLiteral("🔄 Access token expired/expiring (expiresAt=%1), refreshing...")
                     .arg(expiresAt->toString(Qt::ISODate)));
    const auto refresh = co_await refreshToken(run);
    if (refresh.outcome != Refresh::Outcome::refreshed)
        co_return refreshFailure(refresh, QStringLiteral("for expiring token"));
    recordingLog(QStringLiteral("✅ Access token refreshed"));
    co_return std::nullopt;
}

/// What came of one attempt to open the socket.
struct ConnectAttempt {
    AsyncEvent done;
    std::optional<WebSocketError> error;
};

Task<> attemptConnect(RunHandle run, std::shared_ptr<ConnectAttempt> attempt) {
    try {
        co_await run->services.webSocket.connect();
    } catch (const WebSocketError& error) {
        attempt->error = error;
    } catch (const std::exception& error) {
        // A fault in the connection must not end a recording.
        const auto reason = QString::fromUtf8(error.what());
        run->context->report(QStringLiteral("connect"), reason);
        attempt->error.emplace(WebSocketError::Code::connectionFailed, reason);
    }
    attempt->done.set();
}

Task<std::optional<WebSocketError>> connectWithin(RunHandle run, Clock::Duration limit) {
    auto attempt = std::make_shared<ConnectAttempt>();
    run->launch(QStringLiteral("connect"), [run, attempt] { return attemptConnect(run, attempt); });
    if (co_await attempt->done.wait(run->services.clock, limit, run->token()))
        co_return attempt->error;
    if (!run->isOver())
        co_await run->services.webSocket.disconnect();
    // Errors are the result here, not thrown.
    if (run->isOver())
        attempt->error.emplace(WebSocketError::Code::connectionCancelled);
    else
        attempt->error.emplace(WebSocketError::Code::connectionFailed,
                               QStringLiteral("Connection timeout (%1s)")
                                   .arg(std::chrono::duration_cast<std::chrono::seconds>(limit).count()));
    co_return attempt->error;
}

QString reasonOf(const WebSocketError& error) {
    const auto text = QString::fromUtf8(error.what());
    const auto prefix = QStringLiteral("Connection failed: ");
    return text.startsWith(prefix) ? text.mid(prefix.size()) : text;
}

/// The server rejects this token, rather than being too busy for anybody.
bool rejectsToken(const WebSocketError& error) { return error.httpStatus() == 401 || error.httpStatus() == 403; }

Task<std::optional<ConnectFailure>> connectSocket(RunHandle run) {
    recordingLog(QStringLiteral("🔌 Connecting to WebSocket server..."));
    run->timing.webSocketConnectStartedAt = run->services.clock.now();
    auto error = co_await connectWithin(run, webSocketConnectTimeout);
    if (error && rejectsToken(*error) && !run->isOver()) {
        recordingLog(
            QStringLiteral("🔄 WebSocket handshake rejected (bad response). Attempting token refresh + retry..."),
            LogLevel::warn);
        const auto refresh = co_await refreshToken(run);
        if (refresh.outcome != Refresh::Outcome::refreshed)
            co_return refreshFailure(refresh, QStringLiteral("after handshake rejection"));
        if (run->isOver())
            co_return unreachable({});
        error = co_await connectWithin(run, webSocketConnectTimeout);
    }
    if (error && rejectsToken(*error))
        co_return rejected(reasonOf(*error), QStringLiteral("connection"), false);
    if (error)
        co_return unreachable(reasonOf(*error));
    run->timing.webSocketConnectedAt = run->services.clock.now();
    recordingLog(QStringLiteral("✅ WebSocket connected successfully"));
    run->services.metrics.track(QStringLiteral("websocket_connected"));
    run->yield(action::ConnectionEstablished{});
    recordingLog(QStringLiteral("📡 Connection established, proceeding to start session"));
    co_return std::nullopt;
}

} // namespace

Task<std::optional<ConnectFailure>> open(RunHandle run) {
    if (auto failure = co_await ensureValidAccessTokenIfNeeded(run))
        co_return failure;
    if (!co_await connectionTurn::acquire(run))
        co_return unreachable({});
    co_return co_await connectSocket(run);
}

} // namespace quillo::serverConnection
