// What the outside asks of the application: the remote control and the interface.

#include "App/AppDelegate.h"
#include "App/HistoryActions.h"
#include "App/HotkeySetup.h"
#include "Core/LoggingService.h"
#include "Core/SupportedLanguages.h"
#include "Localization/LocalizationManager.h"

#include <QApplication>
#include <QDesktopServices>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMessageBox>
#include <QUrl>

#include <stdexcept>

namespace quillo {

namespace {

QString deliveryWord(Delivery delivery) {
    switch (delivery) {
    case Delivery::read:
        return QStringLiteral("read");
    case Delivery::typed:
        return QStringLiteral("typed");
    case Delivery::unconfirmed:
        return QStringLiteral("unconfirmed");
    case Delivery::clipboardOnly:
        return QStringLiteral("clipboardOnly");
    }
    return {};
}

} // namespace

ControlHooks AppDelegate::controlHooks() {
    ControlHooks hooks;
    hooks.start = [this] {
        if (!isRecording())
            send(action::StartRecording{});
    };
    hooks.stop = [this] { send(action::StopRecording{}); };
    hooks.toggle = [this] {
        if (isRecording())
            send(action::StopRecording{});
        else
            send(action::StartRecording{});
    };
    hooks.cancel = [this] {
        if (m_sideEffects->isBusy())
            send(action::CancelRecording{});
    };
    hooks.show = [this] { m_interface->showWelcome(); };
    hooks.quit = [this] { quit(); };
    hooks.insertAgain = [this] { insertLastTextAgain(); };
    hooks.status = [this] { return statusObject(); };
    if (m_history)
        addHistoryHooks(hooks);
    addAccountHooks(hooks);
    hooks.getSetting = [](const QString& key) {
        return printSettingValue(settingForKey(key), UserSettings::shared().value(key));
    };
    hooks.setSetting = [](const QString& key, const QString& value) {
        const auto parsed = parseSettingValue(settingForKey(key), value);
        if (key == QStringLiteral("primaryLanguage"))
            UserSettings::shared().chooseLanguages(parsed.toString(), UserSettings::shared().secondaryLanguage());
        else
            UserSettings::shared().setValue(key, parsed);
    };
    hooks.listSettings = [] {
        QStringList lines;
        for (const auto& setting : settingsSchema())
            if (!setting.isInternal)
                lines << QStringLiteral("%1 = %2  # %3")
                             .arg(setting.key, printSettingValue(setting, UserSettings::shared().value(setting.key)),
                                  setting.description);
        return lines.join(QLatin1Char('\n'));
    };
    return hooks;
}

ControlHooks AppDelegate::controlHooksWithoutServices(const QString& reason) {
    auto hooks = controlHooks();
    const auto refuse = [reason] { throw std::runtime_error(reason.toStdString()); };
    for (auto* hook : {&hooks.start, &hooks.stop, &hooks.toggle, &hooks.cancel, &hooks.show, &hooks.insertAgain,
                       &hooks.signIn, &hooks.registerAccount, &hooks.cancelSignIn, &hooks.signOut})
        *hook = refuse;
    hooks.status = [reason] {
        return QString::fromUtf8(QJsonDocument(QJsonObject{{QStringLiteral("status"), QStringLiteral("error")},
                                                           {QStringLiteral("message"), reason}})
                                     .toJson(QJsonDocument::Compact));
    };
    hooks.account = [reason] { return reason; };
    hooks.openURL = [](const QString&) {};
    hooks.historyDelete = nullptr;
    hooks.historyRetranscribe = nullptr;
    hooks.historyCopy = nullptr;
    return hooks;
}

void AppDelegate::addHistoryHooks(ControlHooks& hooks) {
    auto& history = m_history->mainContext();
    hooks.historyDelete = [&history](const QString& id) { historyActions::remove(history, id); };
    hooks.historyRetranscribe = [this, &history](const QString& id, const QString& language) {
        historyActions::retranscribe(history, m_queue.get(), id, language);
    };
    hooks.historyCopy = [this, &history](const QString& id) {
        m_tasks.run(QStringLiteral("copy"),
                    [this, text = historyActions::recordFor(history, id)->text](std::stop_token) -> Task<> {
                        co_await m_services->pasteboard->offerText(text, false);
                    });
    };
}

QString AppDelegate::statusObject() const {
    const auto& state = m_store->state();
    QJsonObject object{
        {QStringLiteral("status"), state.status.description()},
        {QStringLiteral("handsOff"), state.isHandsOff},
        {QStringLiteral("partialText"), state.partialText},
        {QStringLiteral("chunksSent"), state.chunksSent},
        {QStringLiteral("server"), m_environment->host()},
        {QStringLiteral("hotkeysArmed"), m_services->hotkeyService->isRunning()},
        {QStringLiteral("microphone"), m_services->audioService->currentDeviceName()},
    };
    if (const auto* error = state.status.error()) {
        object.insert(QStringLiteral("message"), error->errorDescription());
        object.insert(QStringLiteral("detail"), error->detail());
    }
    if (const auto& report = m_sideEffects->lastReport()) {
        QJsonObject run{
            {QStringLiteral("id"), report->runId},
            {QStringLiteral("reason"), report->reason},
            {QStringLiteral("text"), report->text},
            {QStringLiteral("timings"), QJsonObject::fromVariantMap(report->timings)},
        };
        if (report->delivery)
            run.insert(QStringLiteral("delivery"), deliveryWord(*report->delivery));
        if (report->firstSampleAt)
            run.insert(QStringLiteral("firstSampleMonotonicNs"),
                       static_cast<qint64>(report->firstSampleAt->time_since_epoch().count()));
        object.insert(QStringLiteral("lastRun"), run);
    }
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

UserInterfaceHooks AppDelegate::interfaceHooks() {
    UserInterfaceHooks hooks;
    hooks.listMicrophones = [this](const std::function<void(InterfaceChoices)>& answer) {
        m_tasks.run(QStringLiteral("list microphones"), [this, answer](std::stop_token) -> Task<> {
            const auto chosen = UserSettings::shared().selectedMicrophoneId();
            InterfaceChoices choices;
            for (const auto& device : co_await m_services->audioService->getAvailableDevices())
                choices.push_back({device.id, device.name, {}, device.id == chosen});
            answer(std::move(choices));
        });
    };
    hooks.selectMicrophone = [](const std::optional<QString>& id) {
        UserSettings::shared().setSelectedMicrophoneId(id);
    };
    hooks.listLanguages = [] {
        InterfaceChoices choices;
        const auto chosen = UserSettings::shared().primaryLanguage();
        choices.push_back({QStringLiteral("auto"),
                           LocalizationManager::shared().t(QStringLiteral("languagePicker.automatic")),
                           {},
                           chosen == QStringLiteral("auto")});
        for (const auto& language : SupportedLanguages::all())
            choices.push_back({language.code, language.nativeName, language.name, language.code == chosen});
        return choices;
    };
    hooks.selectLanguage = [](const QString& code) { UserSettings::shared().chooseLanguages(code); };
    hooks.lastText = [this] {
        const auto& report = m_sideEffects->lastReport();
        return report ? report->text : QString();
    };
    hooks.insertAgain = [this] { insertLastTextAgain(); };
    hooks.openLog = [] { QDesktopServices::openUrl(QUrl::fromLocalFile(LoggingService::shared().path())); };
    hooks.openSettings = [] { QDesktopServices::openUrl(QUrl::fromLocalFile(Preferences::shared().path())); };
    if (!m_services->hotkeyService->isRunning())
        hooks.setUpHotkey = [] { hotkeySetup::show(); };
    hooks.showAbout = [] {
        QMessageBox::about(nullptr, QStringLiteral("Quillo"),
                           QStringLiteral("Quillo %1").arg(QStringLiteral(QUILLO_VERSION)));
    };
    hooks.quit = [this] { quit(); };
    hooks.pillEnabled = [] { return UserSettings::shared().showFloatingPill(); };
    hooks.loadPillPosition = []() -> std::optional<QPointF> {
        const auto x = UserSettings::shared().pillPositionX();
        const auto y = UserSettings::shared().pillPositionY();
        return x && y ? std::optional(QPointF(*x, *y)) : std::nullopt;
    };
    hooks.savePillPosition = [](QPointF position) {
        UserSettings::shared().setPillPosition(position.x(), position.y());
    };
    addAccountHooks(hooks);
    addOnboardingHooks(hooks);
    return hooks;
}

} // namespace quillo
