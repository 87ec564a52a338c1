#include "Features/Recording/RunAbandonment.h"

#include "Features/Recording/Conclusion.h"

namespace quillo::runAbandonment {

namespace {

/// The last chunks are still on their way when a capture is closed; they belong to the recording like the others.
Task<> keepRemains(RunHandle run, QString reason) {
    co_await CaptureChannel::drain(run->microphone);
    if (run->archive)
        run->archive->keepPending(reason, conclusion::archivedText(*run));
}

} // namespace

Task<> keepAndWait(RunHandle run, QString reason) {
    run->microphone->close();
    conclusion::chooseText(*run);
    run->finish(reason);
    return keepRemains(std::move(run), std::move(reason));
}

void keep(const RunHandle& run, const QString& reason) {
    run->launch(QStringLiteral("keep remains"), [run, reason] { return keepAndWait(run, reason); });
}

void cancel(const RunHandle& run) {
    const auto reason = QStringLiteral("cancelled(user_cancel)");
    if (run->stopping()) {
        keep(run, reason);
        return;
    }
    run->microphone->discard();
    if (run->archive)
        run->archive->discard();
    run->finish(reason);
}

} // namespace quillo::runAbandonment
