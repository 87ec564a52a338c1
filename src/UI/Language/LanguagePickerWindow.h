#pragma once

#include "UI/Language/LanguageListModel.h"
#include "UI/QmlEngineHost.h"
#include "UI/UserInterfaceHooks.h"

#include <QQuickWindow>

#include <memory>

namespace quillo {

/// Asks for the dictation language: a search field over the list, the current or the system's language preselected.
/// Keyboard: type to search, arrows to move, Return to choose, Escape to leave.
class LanguagePickerWindow final : public QQuickWindow {
    Q_OBJECT
public:
    LanguagePickerWindow(QmlEngineHost& host, const UserInterfaceHooks& hooks);
    ~LanguagePickerWindow() override;

    /// Shows the window in front, with the focus.
    void present();

    /// Stores the choice and closes; nothing for an empty code.
    Q_INVOKABLE void choose(const QString& code);
    Q_INVOKABLE void dismiss();

private:
    const UserInterfaceHooks& m_hooks;
    LanguageListModel m_languages;
    std::unique_ptr<QQuickItem> m_item;
};

} // namespace quillo
