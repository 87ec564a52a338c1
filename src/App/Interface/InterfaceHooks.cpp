#include "App/Interface/InterfaceHooks.h"

#include "App/Interface/HotkeyHooks.h"
#include "Core/SupportedLanguages.h"
#include "Localization/LocalizationManager.h"

namespace quillo {

namespace {

QString text(const QString& key) { return LocalizationManager::shared().t(key); }

InterfaceChoices languageChoices(const QString& chosen, const ServedLanguages& served) {
    const auto automatic = QStringLiteral("auto");
    InterfaceChoices choices{{automatic, text(QStringLiteral("languagePicker.automatic")), {}, chosen == automatic}};
    for (const auto& language : SupportedLanguages::all())
        choices.push_back({language.code, language.nativeName, language.name, language.code == chosen,
                           served.understands(language.code)});
    return choices;
}

void addChoices(UserInterfaceHooks& hooks, const InterfaceParts& parts) {
    hooks.listMicrophones = [parts](const std::function<void(InterfaceChoices)>& answer) {
        parts.tasks.run(QStringLiteral("list microphones"), [parts, answer](std::stop_token) -> Task<> {
            const auto chosen = parts.settings.selectedMicrophoneId();
            InterfaceChoices choices;
            for (const auto& device : co_await parts.services.audioService->getAvailableDevices())
                choices.push_back({device.id, device.name, {}, device.id == chosen});
            answer(std::move(choices));
        });
    };
    hooks.selectMicrophone = [&settings = parts.settings](const std::optional<QString>& id) {
        settings.setSelectedMicrophoneId(id);
    };
    hooks.listLanguages = [parts] {
        parts.servedLanguages.ask(); // the server may have got another recogniser since
        return languageChoices(parts.settings.primaryLanguage(), parts.servedLanguages);
    };
    hooks.followLanguages = [&served = parts.servedLanguages](QObject* receiver, const std::function<void()>& update) {
        QObject::connect(&served, &ServedLanguages::changed, receiver, update);
    };
    hooks.selectLanguage = [&settings = parts.settings](const QString& code) { settings.chooseLanguages(code); };
}

void addPill(UserInterfaceHooks& hooks, UserSettings& settings) {
    hooks.pillEnabled = [&settings] { return settings.showFloatingPill(); };
    hooks.loadPillPosition = [&settings]() -> std::optional<QPointF> {
        const auto x = settings.pillPositionX();
        const auto y = settings.pillPositionY();
        return x && y ? std::optional(QPointF(*x, *y)) : std::nullopt;
    };
    hooks.savePillPosition = [&settings](QPointF position) { settings.setPillPosition(position.x(), position.y()); };
}

void addWelcome(UserInterfaceHooks& hooks, const InterfaceParts& parts) {
    hooks.startMicrophoneTest = [parts](MicrophoneProbe::OnLevel onLevel, MicrophoneProbe::OnFailure onFailure) {
        if (parts.dictation.effects().isBusy())
            onFailure({QStringLiteral("welcome.microphone.dictating")});
        else
            parts.dictation.microphoneProbe().start(std::move(onLevel), std::move(onFailure));
    };
    hooks.stopMicrophoneTest = [parts] { parts.dictation.microphoneProbe().stop(); };
    hooks.launchAtLogin = [&settings = parts.settings] { return settings.launchAtLogin(); };
    hooks.setLaunchAtLogin = [&settings = parts.settings](bool on) {
        settings.setValue(QStringLiteral("launchAtLogin"), on);
    };
    hooks.finishOnboarding = [parts] { parts.account.finishOnboarding(); };
}

} // namespace

UserInterfaceHooks interfaceHooks(InterfaceParts parts) {
    UserInterfaceHooks hooks;
    addChoices(hooks, parts);
    addPill(hooks, parts.settings);
    addHotkeyHooks(hooks, parts);
    addWelcome(hooks, parts);
    return hooks;
}

} // namespace quillo
