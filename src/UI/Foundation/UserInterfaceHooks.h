#pragma once

#include <QPointF>
#include <QString>

#include <functional>
#include <optional>
#include <vector>

namespace quillo {

/// One row of a choice: a microphone or a language.
struct InterfaceChoice {
    QString id;
    QString name;   ///< as shown: a device's name, a language's own name
    QString detail; ///< second line or search term, such as a language's English name; may be empty
    bool isCurrent = false;

    bool operator==(const InterfaceChoice&) const = default;
};
using InterfaceChoices = std::vector<InterfaceChoice>;

/// What the interface alone asks of the rest of the application, beside its `Commands`. Every function is called on the
/// main thread and may be left empty: the interface then hides or disables what depends on it.
struct UserInterfaceHooks {
    /// Answers, now or later, on the main thread. Called each time the microphone menu opens.
    std::function<void(std::function<void(InterfaceChoices)> answer)> listMicrophones;
    /// Nothing means the system's default microphone.
    std::function<void(std::optional<QString> id)> selectMicrophone;
    /// The dictation languages, "auto" first when it is offered. Called when a list opens.
    std::function<InterfaceChoices()> listLanguages;
    /// Stores the dictation language chosen by the user.
    std::function<void(const QString& code)> selectLanguage;

    /// Whether the floating pill is wanted; asked each time it would appear. Wanted when empty.
    std::function<bool()> pillEnabled;
    /// Where the user dragged the pill to: the bottom centre of the pill in logical desktop coordinates.
    std::function<std::optional<QPointF>()> loadPillPosition;
    std::function<void(QPointF)> savePillPosition;

    /// The hold hotkey in words ("Right Super"); empty where hotkeys cannot be had.
    std::function<QString()> hotkeyName;
    /// How to bind a key in this desktop, as plain text; offered only while `hotkeyName` is empty.
    std::function<QString()> hotkeySteps;
    /// While set, the hold hotkey's presses (true) and releases (false) go to the observer and start no dictation. An
    /// empty function ends the trial.
    std::function<void(std::function<void(bool isDown)> observer)> observeHotkey;
    /// Listens to the chosen microphone without recording. `onLevel` gets 0 to 1 at any rate; `onFailure` a reason in
    /// plain words, may be empty, after which the test has ended by itself. Neither is called after
    /// `stopMicrophoneTest`.
    std::function<void(std::function<void(float level)> onLevel, std::function<void(QString reason)> onFailure)>
        startMicrophoneTest;
    std::function<void()> stopMicrophoneTest;
    std::function<bool()> launchAtLogin;
    std::function<void(bool)> setLaunchAtLogin;
    /// The user went through the welcome to its end; it is not shown again by itself. Closing it early calls nothing.
    std::function<void()> finishOnboarding;
};

} // namespace quillo
