#include "Features/Recording/ConnectionTurn.h"

namespace quillo::connectionTurn {

namespace {

using namespace std::chrono_literals;

/// Every dictation ends by itself long before; this only keeps the timer finite.
constexpr Clock::Duration longestTurn = 24h;

Task<> leave(RunHandle run) {
    auto& link = run->server;
    // Set however this ends: the next dictation must not wait for ever.
    struct Release {
        AsyncEvent& released;
        ~Release() { released.set(); }
    } const onReturn{link.released};
    if (link.turnAt) {
        recordingLog(QStringLiteral("✅ Message receiving stopped"));
        try {
            co_await run->services.webSocket.disconnect();
            recordingLog(QStringLiteral("✅ WebSocket disconnected"));
        } catch (const WebSocketError& error) {
            recordingLog(QStringLiteral("⚠️ Disconnecting failed: %1").arg(QString::fromUtf8(error.what())),
                         LogLevel::warn);
        }
    } else if (link.before) {
        // The one after this one must not overtake the one before it.
        co_await link.before->wait(run->services.clock, longestTurn);
    }
}

} // namespace

Task<bool> acquire(RunHandle run) {
    auto& link = run->server;
    if (link.before && !link.before->isSet())
        co_await link.before->wait(run->services.clock, longestTurn, run->token());
    if (run->isOver() || link.isReleased)
        co_return false;
    link.turnAt = run->services.clock.now();
    run->services.webSocket.clearAllText();
    recordingLog(QStringLiteral("🧹 Cleared all previous text"));
    co_return true;
}

void release(const RunHandle& run) {
    if (std::exchange(run->server.isReleased, true))
        return;
    run->launch(QStringLiteral("disconnect"), [run] { return leave(run); });
}

} // namespace quillo::connectionTurn
