#include "Features/Recording/TextDelivery.h"

#include "Features/ErrorTexts/ErrorTexts.h"

#include <QCoreApplication>

namespace quillo::textDelivery {

namespace {

bool isOurselves(const RunningApplication& application) {
    return application.pid == QCoreApplication::applicationPid();
}

/// The application to bring to the front before the injection; nothing when the text goes to the frontmost one.
std::optional<RunningApplication> chooseTarget(const RecordingRun& run,
                                               const std::optional<RunningApplication>& current) {
    const auto& atStart = run.targetApp;
    if (current && isOurselves(*current)) {
        if (!atStart || isOurselves(*atStart))
            return std::nullopt;
        recordingLog(
            QStringLiteral("🎯 Frontmost is Quillo — falling back to start-captured app: %1").arg(atStart->name));
        return atStart;
    }
    if (!atStart)
        recordingLog(QStringLiteral("🎯 No target app available — injecting into current frontmost (if any)"));
    else if (current && current->pid != atStart->pid)
        recordingLog(QStringLiteral("🎯 User switched apps during recording: start=%1 current=%2. Using CURRENT app.")
                         .arg(atStart->name, current->name));
    return std::nullopt;
}

} // namespace

Task<DeliveryOutcome> deliver(RunHandle run) {
    DeliveryOutcome outcome;
    auto& delivered = run->delivered;
    if (std::exchange(delivered.isTried, true))
        co_return outcome;
    auto& applications = run->services.applications;
    const auto current = applications.isAvailable() ? applications.frontmost() : std::nullopt;
    const auto target = chooseTarget(*run, current);
    if (target) {
        recordingLog(QStringLiteral("🎯 Activating %1 before injection").arg(target->name));
        if (!applications.activate(*target))
            recordingLog(QStringLiteral("⚠️ %1 could not be activated").arg(target->name), LogLevel::warn);
    }

    try {
        delivered.how = co_await run->services.textInjection.inject(delivered.text, run->preferences.insertionMode,
                                                                    run->preferences.restoreClipboard);
    } catch (const TextInjectionError& error) {
        outcome.failure = RecordingError::Unknown{QString::fromUtf8(error.what()), errorTexts::of(error.code())};
    }
    if (outcome.failure) {
        const auto reason = outcome.failure->detail();
        recordingLog(QStringLiteral("❌ Text injection failed: %1. Text saved to history.").arg(reason),
                     LogLevel::error);
        run->yield(action::TextInjectionFailed{reason});
        co_return outcome;
    }
    run->timing.textDeliveredAt = run->services.clock.now();
    recordingLog(QStringLiteral("✅ Text injected successfully (len=%1)").arg(delivered.text.size()));
    run->yield(action::TextInjected{});
    if (target && current && applications.activate(*current))
        recordingLog(QStringLiteral("🎯 Re-activated Quillo (was frontmost before injection)"));
    if (delivered.how == Delivery::unconfirmed)
        outcome.hadTextField = co_await run->services.textInjection.hasFocusedTextField();
    if (!outcome.hadTextField)
        recordingLog(QStringLiteral("⚠️ Text pasted but no text field was focused — saved to history"), LogLevel::warn);
    co_return outcome;
}

} // namespace quillo::textDelivery
