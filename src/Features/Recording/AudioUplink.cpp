#include "Features/Recording/AudioUplink.h"

namespace quillo::audioUplink {

namespace {

using namespace std::chrono_literals;

/// The connection counts as stuck if no chunk is sent for this long.
constexpr Clock::Duration stalledSendLimit = 8s;

bool maySend(const RecordingRun& run) {
    return run.server.session->isStarted && !run.server.isOffline && !run.isOver() &&
           run.services.webSocket.isConnected();
}

Task<> flush(RunHandle run) {
    auto& link = run->server;
    link.isSending = true;
    link.sent = AsyncEvent();
    struct End {
        ServerLink& link;
        ~End() {
            link.isSending = false;
            link.sent.set();
        }
    } const onReturn{link};
    if (link.session->chunksSent == 0 && run->captures.hasBufferedChunks())
        recordingLog(
            QStringLiteral("📤 Sending %1 buffered chunks after session_started").arg(run->captures.bufferedChunks()));
    while (maySend(*run)) {
        auto chunk = run->captures.takeFirst();
        if (!chunk)
            co_return;
        const auto session = link.session;
        try {
            co_await run->services.webSocket.sendAudio(*chunk, true);
            ++session->chunksSent;
        } catch (const WebSocketError& error) {
            recordingLog(
                QStringLiteral("⚠️ Failed to send buffered audio chunk: %1").arg(QString::fromUtf8(error.what())),
                LogLevel::warn);
            link.isIncomplete = true;
        }
    }
}

} // namespace

void send(const RunHandle& run) {
    if (!run->server.isSending && run->captures.hasBufferedChunks() && maySend(*run))
        run->launch(QStringLiteral("send audio"), [run] { return flush(run); });
}

Task<bool> finishSending(RunHandle run, Clock::Instant until) {
    auto& link = run->server;
    auto& clock = run->services.clock;
    send(run);
    for (int sent = -1; link.isSending && sent != link.session->chunksSent && !run->isOver();) {
        sent = link.session->chunksSent;
        const auto left = until - clock.now();
        if (left <= Clock::Duration::zero())
            break;
        co_await link.sent.wait(clock, std::min(left, stalledSendLimit), run->token());
    }
    if (link.isSending && !run->isOver())
        recordingLog(QStringLiteral("⚠️ The connection takes no more audio (bufferedChunks=%1)")
                         .arg(run->captures.bufferedChunks()),
                     LogLevel::warn);
    if (link.isSending || run->captures.hasBufferedChunks())
        link.isIncomplete = true;
    co_return !link.isSending;
}

} // namespace quillo::audioUplink
