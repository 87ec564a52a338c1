#include "App/Commands/ApplicationCommands.h"

#include "App/Account/AccountController.h"
#include "App/Commands/StatusReport.h"
#include "App/System/ServiceContainer.h"
#include "Core/Log.h"
#include "Core/NotificationCenter.h"
#include "Features/ErrorTexts/ErrorTexts.h"
#include "Localization/LocalizationManager.h"
#include "Services/History/HistoryActions.h"

namespace quillo {

void ApplicationCommands::start() {
    if (!isRecording())
        m_parts.store.send(action::StartRecording{});
}

void ApplicationCommands::stop() { m_parts.store.send(action::StopRecording{}); }

void ApplicationCommands::toggle() {
    if (isRecording())
        stop();
    else
        start();
}

void ApplicationCommands::cancel() {
    if (m_parts.effects.isBusy())
        m_parts.store.send(action::CancelRecording{});
}

void ApplicationCommands::insertAgain() {
    m_parts.tasks.run(QStringLiteral("insert again"), [this](std::stop_token) -> Task<> {
        auto& injection = *m_parts.services.textInjectionService;
        const auto& settings = UserSettings::shared();
        const auto last = lastText();
        QString failure;
        try {
            if (!injection.lastUndelivered().isEmpty())
                co_await injection.insertAgain();
            else if (!last.isEmpty())
                co_await injection.inject(last, settings.insertionMode(), settings.restoreClipboard());
        } catch (const TextInjectionError& error) {
            failure = LocalizationManager::shared().t(errorTexts::of(error.code()));
        }
        if (!failure.isEmpty())
            m_parts.store.send(action::ShowHint{{failure}});
    });
}

QString ApplicationCommands::lastText() const {
    const auto& report = m_parts.effects.lastReport();
    return report ? report->text : QString();
}

QString ApplicationCommands::status() const {
    return statusReport(m_parts.store.state(), m_parts.effects.lastReport(),
                        {.server = m_parts.serverHost(),
                         .hotkeysArmed = m_parts.services.hotkeyService->isRunning(),
                         .conflicts = m_parts.services.hotkeyService->conflicts(),
                         .microphone = m_parts.services.audioService->currentDeviceName()});
}

AccountState ApplicationCommands::account() const { return m_parts.account.state(); }
void ApplicationCommands::signIn() { m_parts.account.signIn(); }
void ApplicationCommands::registerAccount() { m_parts.account.registerAccount(); }
void ApplicationCommands::cancelSignIn() { m_parts.account.cancelSignIn(); }
void ApplicationCommands::signOut() { m_parts.account.signOut(); }
void ApplicationCommands::deleteAccount() { m_parts.account.deleteAccount(); }

void ApplicationCommands::openURL(const QString& url) {
    if (!m_parts.account.state().isBusy)
        appLog(QStringLiteral("An address of ours arrived that no sign-in waits for; it is left alone"), LogLevel::info,
               QStringLiteral("App"));
    NotificationCenter::shared().post(notification::authCallback, {{QStringLiteral("url"), url}});
}

ModelContext& ApplicationCommands::history() const {
    if (!m_parts.history)
        throw HistoryError(HistoryError::Code::noHistory);
    return *m_parts.history;
}

void ApplicationCommands::deleteRecord(const QString& id) { historyActions::remove(history(), id); }

void ApplicationCommands::retranscribeRecord(const QString& id, const QString& language) {
    historyActions::retranscribe(history(), m_parts.queue(), id, language);
}

void ApplicationCommands::copyRecord(const QString& id) {
    m_parts.tasks.run(QStringLiteral("copy"),
                      [this, text = historyActions::idleRecord(history(), id)->text](std::stop_token) -> Task<> {
                          co_await m_parts.services.pasteboard->offerText(text, false, ClipboardUse::lasting);
                      });
}

} // namespace quillo
