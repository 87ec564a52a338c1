#pragma once

#include "UI/Foundation/UserInterfaceHooks.h"
#include "UI/Language/LanguageListModel.h"
#include "UI/Window/DialogWindow.h"

namespace quillo {

/// Asks for the dictation language: a search field over the list, the current or the system's language preselected.
/// Keyboard: type to search, arrows to move, Return to choose, Escape to leave.
class LanguagePickerWindow final : public DialogWindow {
    Q_OBJECT
public:
    LanguagePickerWindow(QmlEngineHost& host, const UserInterfaceHooks& hooks);
    ~LanguagePickerWindow() override;

    /// Stores the choice and closes; does nothing for an empty code.
    Q_INVOKABLE void choose(const QString& code);

private:
    const UserInterfaceHooks& m_hooks;
    LanguageListModel m_languages;
};

} // namespace quillo
