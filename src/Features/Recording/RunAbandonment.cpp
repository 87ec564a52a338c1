#include "Features/Recording/RunAbandonment.h"

#include "Features/Recording/Conclusion.h"

namespace quillo::runAbandonment {

namespace {

void logRecord(const RecordingRun& run, const RecordPointer& record) {
    if (record)
        recordingLog(QStringLiteral("🗑️ Active record cancelled/downgraded: %1 (%2)")
                         .arg(record->id.toString(QUuid::WithoutBraces), run.log.endReason()));
}

/// The last chunks are still on their way when a capture is closed; they belong to the recording like the others.
Task<> keepRemains(RunHandle run, QString reason) {
    // Set however this ends: the end of the program waits for it.
    struct Kept {
        AsyncEvent done;
        ~Kept() { done.set(); }
    } const kept;
    std::erase_if(run->context->keeping, [](const AsyncEvent& event) { return event.isSet(); });
    run->context->keeping.push_back(kept.done);
    co_await run->captures.drain();
    if (!run->archive)
        co_return;
    run->archive->keepPending(reason, conclusion::archivedText(*run));
    logRecord(*run, run->archive->record());
}

} // namespace

Task<> keepAndWait(RunHandle run, QString reason) {
    run->captures.close();
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
    run->captures.discard();
    const auto record = run->archive ? run->archive->record() : nullptr;
    if (run->archive)
        run->archive->discard();
    run->finish(reason);
    logRecord(*run, record);
}

} // namespace quillo::runAbandonment
