#include "Features/Recording/SessionConnector.h"

#include "Core/NotificationCenter.h"
#include "Features/Recording/SessionMessages.h"

namespace quillo::sessionConnector {

namespace {

using namespace std::chrono_literals;

constexpr Clock::Duration webSocketConnectTimeout = 10s;
/// A token that expires within this is refreshed first, so that it holds for the handshake of a slow network.
constexpr int expiryMarginSeconds = 60;

StartFailure connectionFailure(const QString& reason, const QString& code) {
    return {action::ConnectionFailed{reason}, QStringLiteral("failed(%1)").arg(code)};
}

/// How a refresh ended: it worked, the server rejected the session, or nobody could be asked.
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

StartFailure refreshFailure(const Refresh& refresh, const QString& circumstance) {
    if (refresh.outcome == Refresh::Outcome::rejected) {
        recordingLog(QStringLiteral("🔒 Token refresh failed %1 (auth error). Forcing re-auth. Error: %2")
                         .arg(circumstance, refresh.error),
                     LogLevel::error);
        NotificationCenter::shared().post(notification::authRequired);
        return connectionFailure(refresh.error, QStringLiteral("auth_required"));
    }
    recordingLog(QStringLiteral("⚠️ Token refresh failed %1 (non-auth error). Keeping session and aborting this "
                                "recording. Error: %2")
                     .arg(circumstance, refresh.error),
                 LogLevel::warn);
    return connectionFailure(refresh.error, QStringLiteral("token_refresh"));
}

Task<std::optional<StartFailure>> ensureValidAccessTokenIfNeeded(RunHandle run) {
    auto& storage = run->services.tokenStorage;
    if (!storage.accessToken()) {
        QString reason;
        try {
            co_await run->services.auth.createAnonymousSession();
        } catch (const AuthError& error) {
            reason = QString::fromUtf8(error.what());
        }
        if (storage.accessToken())
            co_return std::nullopt;
        recordingLog(QStringLiteral("🔒 No access token available. Forcing re-auth..."), LogLevel::error);
        NotificationCenter::shared().post(notification::authRequired);
        co_return connectionFailure(reason, QStringLiteral("no_access_token"));
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
    }
    attempt->done.set();
}

Task<std::optional<WebSocketError>> connectWithin(RunHandle run, Clock::Duration limit) {
    auto attempt = std::make_shared<ConnectAttempt>();
    run->tasks.run(QStringLiteral("connect"), [run, attempt](std::stop_token) { return attemptConnect(run, attempt); });
    if (co_await attempt->done.wait(run->services.clock, limit, run->token()))
        co_return attempt->error;
    if (!run->isCancelled())
        co_await run->services.webSocket.disconnect();
    // Errors are the result here, not thrown.
    if (run->isCancelled())
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

Task<std::optional<StartFailure>> connectSocket(RunHandle run) {
    recordingLog(QStringLiteral("🔌 Connecting to WebSocket server..."));
    run->timing.webSocketConnectStartedAt = run->services.clock.now();
    auto error = co_await connectWithin(run, webSocketConnectTimeout);
    if (error && error->isRejectedUpgrade() && !run->isCancelled()) {
        recordingLog(
            QStringLiteral("🔄 WebSocket handshake rejected (bad response). Attempting token refresh + retry..."),
            LogLevel::warn);
        const auto refresh = co_await refreshToken(run);
        if (refresh.outcome != Refresh::Outcome::refreshed)
            co_return refreshFailure(refresh, QStringLiteral("after handshake rejection"));
        error = co_await connectWithin(run, webSocketConnectTimeout);
    }
    if (error)
        co_return connectionFailure(reasonOf(*error), QStringLiteral("connection"));
    run->timing.webSocketConnectedAt = run->services.clock.now();
    recordingLog(QStringLiteral("✅ WebSocket connected successfully"));
    run->services.metrics.track(QStringLiteral("websocket_connected"));
    run->yield(action::ConnectionEstablished{});
    recordingLog(QStringLiteral("📡 Connection established, proceeding to start session"));
    co_return std::nullopt;
}

} // namespace

Task<> requestSession(RunHandle run) {
    SessionRequest request;
    request.languages = run->preferences.languages;
    if (run->targetApp)
        request.appContext = run->targetApp->name;
    request.audioSources = QStringList{AudioChunk::microphone};
    request.enhancedTranscription = run->preferences.enhancedTranscription;
    request.enhancedConsentAt = run->preferences.enhancedConsentTimestamp;
    request.clientRecordingId = run->clientRecordingId;
    recordingLog(QStringLiteral("Sending start_session: languages=%1, clientRecordingId=%2")
                     .arg(request.languages.join(QLatin1Char(',')), run->clientRecordingId));
    co_await run->services.webSocket.startSession(request);
    recordingLog(QStringLiteral("✅ start_session sent successfully"));
    run->timing.startSessionSentAt = run->services.clock.now();
    run->services.metrics.track(QStringLiteral("start_session_sent"));
}

Task<std::optional<StartFailure>> open(RunHandle run) {
    if (auto failure = co_await ensureValidAccessTokenIfNeeded(run))
        co_return failure;
    if (run->isCancelled())
        co_return connectionFailure(QString(), QStringLiteral("cancelled"));
    if (auto failure = co_await connectSocket(run))
        co_return failure;
    recordingLog(QStringLiteral("📥 Starting message receiving loop..."));
    // The event stream queues from the moment the socket is open, so there is nothing to wait for before sending.
    sessionMessages::begin(run, run->services.webSocket.receiveMessages());
    QString reason;
    try {
        co_await requestSession(run);
        co_return std::nullopt;
    } catch (const WebSocketError& error) {
        reason = QString::fromUtf8(error.what());
    }
    co_return StartFailure{action::SessionStartFailed{reason}, QStringLiteral("failed(start_session)")};
}

} // namespace quillo::sessionConnector
