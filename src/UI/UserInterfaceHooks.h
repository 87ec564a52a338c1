#pragma once

#include <QPoint>
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

/// What the interface asks of the rest of the application. Every function is called on the main thread and may be left
/// empty: the interface then hides or disables what depends on it.
struct UserInterfaceHooks {
    /// Answers, now or later, on the main thread. Called each time the microphone menu opens.
    std::function<void(std::function<void(InterfaceChoices)> answer)> listMicrophones;
    /// Nothing means the system's default microphone.
    std::function<void(std::optional<QString> id)> selectMicrophone;
    /// The dictation languages, "auto" first when it is offered. Called when a list opens.
    std::function<InterfaceChoices()> listLanguages;
    /// Stores the dictation language chosen by the user.
    std::function<void(const QString& code)> selectLanguage;
    /// The text that "insert the last text again" would insert; empty disables the entry.
    std::function<QString()> lastText;
    std::function<void()> insertAgain;
    /// Shows how to bind a key in the desktop; empty where the application sees its hotkeys itself.
    std::function<void()> setUpHotkey;
    std::function<void()> openLog;
    std::function<void()> openSettings;
    std::function<void()> showAbout;
    std::function<void()> quit;

    /// Whether the floating pill is wanted; asked each time it would appear. Wanted when empty.
    std::function<bool()> pillEnabled;
    /// Where the user dragged the pill to: the bottom centre of the pill in logical desktop coordinates.
    std::function<std::optional<QPointF>()> loadPillPosition;
    std::function<void(QPointF)> savePillPosition;
};

} // namespace quillo
