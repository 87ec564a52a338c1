#include "App/Interface/HotkeyHooks.h"

#include "App/Interface/HotkeySetup.h"
#include "Localization/LocalizationManager.h"
#include "Services/Hotkeys/HotkeyChoice.h"
#include "Services/Settings/KeyNames.h"

namespace quillo {

namespace {

QString text(const UserMessage& message) { return LocalizationManager::shared().t(message); }

/// Why the combination cannot be the hotkey; empty when it can.
QString refusal(const InterfaceParts& parts, Hotkey hotkey, const KeyCombination& combination) {
    auto key =
        hotkeyChoice::keyOf(hotkeyChoice::problemOf(hotkey, combination, HotkeyConfig::fromSettings(parts.settings)));
    if (key.isEmpty() && !parts.services.hotkeyService->isFree(combination))
        key = QStringLiteral("hotkey.problem.taken");
    return key.isEmpty() ? QString() : text(UserMessage{key, {keyNames::of(combination)}});
}

void choose(const InterfaceParts& parts, Hotkey hotkey, std::function<void(const QString&)> answer) {
    parts.services.hotkeyService->captureKey(
        [parts, hotkey, answer = std::move(answer)](const KeyCombination& combination) {
            QString problem;
            if (combination != KeyCombination{keycode::escape, 0}) {
                problem = refusal(parts, hotkey, combination);
                if (problem.isEmpty())
                    hotkeyChoice::store(hotkey, combination, parts.settings);
            }
            // After the restart of the service with the new key.
            EventExecutor::main().post([answer, problem] { answer(problem); });
        });
}

} // namespace

void addHotkeyHooks(UserInterfaceHooks& hooks, const InterfaceParts& parts) {
    const auto nameOf = [parts](Hotkey hotkey) {
        const auto keys = HotkeyConfig::fromSettings(parts.settings);
        if (!parts.services.hotkeyService->isRunning())
            return QString();
        return hotkey == Hotkey::hold ? keyNames::of({keys.keyCode, keys.modifiers})
                                      : keyNames::of({keys.toggleKeyCode, keys.toggleModifiers});
    };
    hooks.hotkeyName = [nameOf] { return nameOf(Hotkey::hold); };
    hooks.toggleHotkeyName = [nameOf] { return nameOf(Hotkey::toggle); };
    hooks.hotkeySteps = [] { return hotkeySetup::guide(); };
    hooks.observeHotkey = [parts](std::function<void(bool)> observer) { parts.hotkeys.observe(std::move(observer)); };
    hooks.hotkeyConflict = [parts]() -> std::optional<InterfaceConflict> {
        const auto conflicts = parts.services.hotkeyService->conflicts();
        if (conflicts.empty())
            return std::nullopt;
        const auto& first = conflicts.front();
        return InterfaceConflict{text(hotkeyChoice::messageOf(first)),
                                 first.free ? text({QStringLiteral("hotkey.use"), {keyNames::of(*first.free)}})
                                            : QString()};
    };
    hooks.takeFreeHotkey = [parts] {
        const auto conflicts = parts.services.hotkeyService->conflicts();
        if (!conflicts.empty() && conflicts.front().free)
            hotkeyChoice::store(conflicts.front().hotkey, *conflicts.front().free, parts.settings);
    };
    hooks.chooseHotkey = [parts](bool isToggle, std::function<void(QString)> answer) {
        choose(parts, isToggle ? Hotkey::toggle : Hotkey::hold, std::move(answer));
    };
    hooks.stopChoosingHotkey = [parts] { parts.services.hotkeyService->captureKey({}); };
}

} // namespace quillo
