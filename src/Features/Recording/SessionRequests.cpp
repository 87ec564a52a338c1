#include "Features/Recording/SessionRequests.h"

#include "Features/Recording/ServerLoss.h"

namespace quillo::sessionRequests {

namespace {

/// A limit, because a server that ends every session at once would be asked for ever.
constexpr int maxBarrenSessions = 3;

/// A failed send does not end the session: the connection's events report its end.
Task<> requestAgain(RunHandle run) {
    try {
        co_await request(run);
    } catch (const WebSocketError& error) {
        recordingLog(QStringLiteral("⚠️ Failed to restart the session: %1").arg(QString::fromUtf8(error.what())),
                     LogLevel::warn);
    }
}

} // namespace

Task<> request(RunHandle run) {
    SessionRequest request;
    request.languages = run->preferences.languages;
    if (run->targetApp)
        request.appContext = run->targetApp->name;
    request.audioSources = run->server.plan.audioSources;
    request.mode = run->server.plan.mode;
    request.enhancedTranscription = run->preferences.enhancedTranscription;
    request.enhancedConsentAt = run->preferences.enhancedConsentTimestamp;
    request.clientRecordingId = run->id;
    recordingLog(QStringLiteral("Sending start_session: languages=%1, clientRecordingId=%2")
                     .arg(request.languages.join(QLatin1Char(',')), run->id));
    co_await run->services.webSocket.startSession(request);
    recordingLog(QStringLiteral("✅ start_session sent successfully"));
    run->timing.startSessionSentAt = run->services.clock.now();
    run->services.metrics.track(QStringLiteral("start_session_sent"));
}

void replace(const RunHandle& run) {
    auto& link = run->server;
    const auto last = link.session;
    link.barrenSessions = last->chunksSent == 0 ? link.barrenSessions + 1 : 0;
    // The text on which the last session was still working is lost.
    link.isIncomplete = link.isIncomplete || last->chunksSent > 0;
    // A session that never started has no text of its own: what arrives belongs to the one before, joined already.
    if (last->isStarted)
        link.earlier = link.earlier.joined(last->bestText(run->services.webSocket.texts()));
    run->services.webSocket.clearAllText();
    link.session = std::make_shared<ServerSession>();
    if (link.barrenSessions > maxBarrenSessions) {
        serverLoss::goOffline(run, QStringLiteral("the server ends every session at once"));
        return;
    }
    run->launch(QStringLiteral("restart session"), [run] { return requestAgain(run); });
}

} // namespace quillo::sessionRequests
