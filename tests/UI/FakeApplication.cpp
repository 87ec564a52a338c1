#include "UI/FakeApplication.h"

#include "Core/SupportedLanguages.h"
#include "Platform/Linux/X11/X11WindowHints.h"
#include "Platform/Unavailable.h"

namespace quillo::test {

FakeApplication::FakeApplication(RecordingStore* store) : windowHints(createX11WindowHints()), m_store(store) {
    if (!windowHints)
        windowHints = makeUnavailableWindowHints();
    hooks.pillEnabled = [this] { return pillWanted; };
    hooks.loadPillPosition = [this] { return pillPosition; };
    hooks.savePillPosition = [this](QPointF position) { pillPosition = position; };
    hooks.listLanguages = [this] {
        InterfaceChoices choices;
        for (const auto& language : SupportedLanguages::all())
            choices.push_back({language.code, language.nativeName, language.name, language.code == u"de",
                               servedLanguages.isEmpty() || servedLanguages.contains(language.code)});
        return choices;
    };
    hooks.followLanguages = [this](QObject*, std::function<void()> update) { languagesChanged = std::move(update); };
    hooks.selectLanguage = [this](const QString& code) { chosenLanguage = code; };
    hooks.listMicrophones = [](const auto& answer) {
        answer(
            {{u"usb"_qs, u"Desk & Chair Microphone"_qs, {}, true}, {u"built-in"_qs, u"Built-in Audio"_qs, {}, false}});
    };
    hooks.selectMicrophone = [this](const std::optional<QString>& id) { chosenMicrophones << id.value_or(QString()); };
    hooks.hotkeyName = [this] { return hotkey; };
    hooks.hotkeySteps = [] { return u"In the keyboard settings, bind a key to this command:\n  quillo toggle"_qs; };
    hooks.observeHotkey = [this](std::function<void(bool)> observer) { hotkeyObserver = std::move(observer); };
    hooks.toggleHotkeyName = [this] { return toggleHotkey; };
    hooks.hotkeyConflict = [this] { return hotkeyConflict; };
    hooks.takeFreeHotkey = [this] {
        toggleHotkey = u"Ctrl+Alt+Space"_qs;
        hotkeyConflict.reset();
    };
    hooks.chooseHotkey = [this](bool isToggle, std::function<void(QString)> answer) {
        hotkeyChosen = [this, isToggle, answer = std::move(answer)](const QString& name, const QString& problem) {
            if (problem.isEmpty())
                (isToggle ? toggleHotkey : hotkey) = name;
            answer(problem);
        };
    };
    hooks.stopChoosingHotkey = [this] { hotkeyChosen = nullptr; };
    hooks.startMicrophoneTest = [this](std::function<void(float)> onLevel, std::function<void(QString)> onFailure) {
        isUnbalanced = isUnbalanced || isMicrophoneOpen;
        isMicrophoneOpen = true;
        ++microphoneTests;
        microphoneLevel = std::move(onLevel);
        microphoneFailure = [this, failed = std::move(onFailure)](const QString& reason) {
            isMicrophoneOpen = false;
            failed(reason);
        };
    };
    hooks.stopMicrophoneTest = [this] {
        isUnbalanced = isUnbalanced || !isMicrophoneOpen;
        isMicrophoneOpen = false;
    };
    hooks.launchAtLogin = [this] { return launchAtLogin; };
    hooks.setLaunchAtLogin = [this](bool launch) { launchAtLogin = launch && !isLaunchAtLoginRefused; };
    hooks.finishOnboarding = [this] { ++finishedWelcomes; };
}

} // namespace quillo::test
