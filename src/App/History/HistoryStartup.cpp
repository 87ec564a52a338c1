#include "App/History/HistoryStartup.h"

#include "Core/Log.h"
#include "Core/UserNotice.h"
#include "Data/TagManager.h"
#include "Features/ErrorTexts/ErrorTexts.h"

namespace quillo {

namespace {

void log(const QString& message, LogLevel level = LogLevel::info) { appLog(message, level, QStringLiteral("App")); }

std::unique_ptr<ModelContainer> createOrFallBack() {
    try {
        auto container = DataContainer::create();
        log(QStringLiteral("[AppDelegate] ✅ Using shared ModelContainer (provided by QuilloApp)"));
        return container;
    } catch (const StoreError& error) {
        log(QStringLiteral("Could not create ModelContainer: %1").arg(error.message()), LogLevel::error);
        userNotice::post(errorTexts::of(error.cause()));
    }
    log(QStringLiteral("[AppDelegate] ⚠️ ModelContainer is nil — QuilloApp did not provide it. Falling back to "
                       "local-only."),
        LogLevel::warn);
    try {
        return DataContainer::createInMemory();
    } catch (const StoreError& error) {
        log(QStringLiteral("[AppDelegate] ⚠️ Failed to create fallback ModelContainer: %1").arg(error.message()),
            LogLevel::error);
    }
    return nullptr;
}

} // namespace

std::unique_ptr<ModelContainer> openHistory(const QStringList& arguments) {
    auto container = createOrFallBack();
    if (!container)
        return nullptr;
    if (const auto& damaged = container->setAside())
        userNotice::post(errorTexts::of(*damaged));
    auto& context = container->mainContext();
    TranscriptionRecord::cleanupStaleRecordings(context);
    DataContainer::seedTestDataIfNeeded(context, arguments);
    TagManager::shared().setContext(&context);
    return container;
}

ModelContext* keptHistory(const ModelContainer* container) {
    return container && !container->path().isEmpty() ? &container->mainContext() : nullptr;
}

} // namespace quillo
