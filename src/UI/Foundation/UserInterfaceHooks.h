#pragma once

#include "Core/UserMessage.h"

#include <QObject>
#include <QPointF>
#include <QString>

#include <functional>
#include <optional>
#include <vector>

namespace quillo {

/// One row of a list: a microphone or a language.
struct InterfaceChoice {
    QString id;
    QString name;   ///< as shown: a device's name, a language's own name
    QString detail; ///< second line or search term, such as a language's English name; may be empty
    bool isCurrent = false;
    bool isServed = true; ///< false for a language that the server in use does not understand

    bool operator==(const InterfaceChoice&) const = default;
};
using InterfaceChoices = std::vector<InterfaceChoice>;

/// A hotkey that another program holds.
struct InterfaceConflict {
    QString message;
    QString offer; ///< on the button that takes a free combination instead; empty when there is none
};

/// Functions that only the interface needs, besides `Commands`. Every function is called on the main thread and may be
/// empty: the interface then hides or disables the dependent parts.
struct UserInterfaceHooks {
    /// Answers, now or later, on the main thread. Called each time the microphone menu opens.
    std::function<void(std::function<void(InterfaceChoices)> answer)> listMicrophones;
    /// Nothing means the system's default microphone.
    std::function<void(std::optional<QString> id)> selectMicrophone;
    /// The dictation languages, "auto" first when it is offered. Called when a list opens.
    std::function<InterfaceChoices()> listLanguages;
    /// Calls `update` whenever `listLanguages` would answer otherwise because of the server, while `receiver` lives.
    std::function<void(QObject* receiver, std::function<void()> update)> followLanguages;
    /// Stores the dictation language chosen by the user.
    std::function<void(const QString& code)> selectLanguage;

    /// Whether to show the floating pill; called each time it would appear. Shown when empty.
    std::function<bool()> pillEnabled;
    /// The place to which the user dragged the pill: its bottom centre in logical desktop coordinates.
    std::function<std::optional<QPointF>()> loadPillPosition;
    std::function<void(QPointF)> savePillPosition;

    /// The name of the hold hotkey ("Right Super"); empty where hotkeys are not available.
    std::function<QString()> hotkeyName;
    std::function<QString()> toggleHotkeyName;
    /// The first hotkey that another program holds.
    std::function<std::optional<InterfaceConflict>()> hotkeyConflict;
    /// Takes what the conflict offers.
    std::function<void()> takeFreeHotkey;
    /// Waits for the key that the user presses and stores it. Answers with the reason why not, empty when it was stored
    /// or the user pressed Escape.
    std::function<void(bool isToggle, std::function<void(QString problem)> answer)> chooseHotkey;
    std::function<void()> stopChoosingHotkey;
    /// How to bind a key in this desktop, as plain text; offered only while `hotkeyName` is empty.
    std::function<QString()> hotkeySteps;
    /// While set, presses (true) and releases (false) of the hold hotkey go to the observer and do not start a
    /// dictation. An empty function ends the trial.
    std::function<void(std::function<void(bool isDown)> observer)> observeHotkey;
    /// Measures the chosen microphone without recording. `onLevel` gets 0 to 1 at any rate; `onFailure` ends the test
    /// with a reason, which may be empty. Neither is called after `stopMicrophoneTest`.
    std::function<void(std::function<void(float level)> onLevel, std::function<void(UserMessage reason)> onFailure)>
        startMicrophoneTest;
    std::function<void()> stopMicrophoneTest;
    std::function<bool()> launchAtLogin;
    std::function<void(bool)> setLaunchAtLogin;
    /// The user completed the welcome, so it is no longer shown automatically. Not called when it is closed early.
    std::function<void()> finishOnboarding;
};

} // namespace quillo
