#include "App/AppDelegate.h"

#include "App/Application.h"
#include "App/Startup.h"
#include "Core/Log.h"

#include <QCoreApplication>

#include <utility>

namespace quillo {

namespace {

void reportUnexpected(const QString& name, const QString& error) {
    appLog(QStringLiteral("❌ Unexpected failure in '%1': %2").arg(name, error), LogLevel::error,
           QStringLiteral("App"));
}

/// What the disk refused while it was full may fit now.
void saveRest(ModelContext* history) {
    try {
        if (history)
            history->save();
    } catch (const StoreError& error) {
        appLog(QStringLiteral("❌ The history could not be saved: %1").arg(error.message()), LogLevel::error,
               QStringLiteral("App"));
    }
}

} // namespace

AppDelegate::AppDelegate()
    : m_application(new Application{.tasks = TaskRunner(&reportUnexpected), .quit = [this] { quit(); }}) {}

AppDelegate::~AppDelegate() {
    // Stop the hotkeys before the other parts end, so that no dictation starts.
    if (m_application->hotkeys)
        m_application->hotkeys->disarm();
    // Parts that end may still post notices; the interface that shows them ends too.
    m_application->notices.close();
}

bool AppDelegate::launch() { return startUp(*m_application); }

void AppDelegate::tellUser(const UserMessage& notice) { m_application->notices.add(notice); }

void AppDelegate::quit() {
    if (std::exchange(m_isQuitting, true))
        return;
    if (!m_application->dictation)
        return QCoreApplication::quit();
    // From now on no dictation may start; a running one is saved to the disk first.
    m_application->hotkeys->disarm();
    m_application->tasks.run(QStringLiteral("quit"), [this](std::stop_token) -> Task<> {
        co_await m_application->dictation->effects().shutDown();
        saveRest(m_application->historyContext());
        QCoreApplication::quit();
    });
}

} // namespace quillo
