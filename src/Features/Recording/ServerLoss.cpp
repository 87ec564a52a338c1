#include "Features/Recording/ServerLoss.h"

#include "Core/DictatedText.h"
#include "Features/Recording/ConnectionTurn.h"

namespace quillo::serverLoss {

void endWaits(RecordingRun& run) {
    run.server.gone.set();
    run.server.session->decided.set();
    run.server.session->over.set();
}

void goOffline(const RunHandle& run, const QString& error, std::optional<ServerRefusal> refusal) {
    auto& link = run->server;
    if (refusal && !link.refusal)
        link.refusal = std::move(refusal);
    endWaits(*run);
    if (run->isOver())
        return;
    if (run->stopping()) {
        recordingLog(QStringLiteral("ℹ️ Ignoring connectionLost - already stopping gracefully "));
        return;
    }
    if (link.isOffline) {
        recordingLog(QStringLiteral("ℹ️ Ignoring connectionLost - already in offline mode "));
        return;
    }
    recordingLog(QStringLiteral("⚠️ Connection lost — switching to OFFLINE recording mode. Audio continues writing to "
                                "disk. "),
                 LogLevel::warn);
    link.isOffline = true;
    // The audio is on the disk, and the queue will send it later.
    run->captures.stopBuffering();
    const auto recovered =
        link.turnAt ? link.earlier.joined(link.session->bestText(run->services.webSocket.texts())) : link.earlier;
    run->delivered.text = recovered.text;
    run->delivered.originalText = recovered.original;
    if (!recovered.text.isEmpty())
        recordingLog(QStringLiteral("📨 Recovered text: %1").arg(dictated(recovered.text)));
    run->yield(action::ConnectionLost{error, recovered.text});
    run->yield(action::SwitchedToOffline{});
    connectionTurn::release(run);
}

} // namespace quillo::serverLoss
