#include "UI/Language/LanguagePickerWindow.h"

namespace quillo {

LanguagePickerWindow::LanguagePickerWindow(QmlEngineHost& host, const UserInterfaceHooks& hooks)
    : DialogWindow(QStringLiteral("languagePicker.title")), m_hooks(hooks),
      m_languages(hooks.listLanguages ? hooks.listLanguages() : InterfaceChoices()) {
    fill(host, QStringLiteral("Language/LanguagePicker.qml"),
         {{QStringLiteral("languages"), &m_languages}, {QStringLiteral("picker"), this}});
    if (hooks.followLanguages)
        hooks.followLanguages(this, [this] { m_languages.setServed(m_hooks.listLanguages()); });
}

LanguagePickerWindow::~LanguagePickerWindow() { clear(); }

void LanguagePickerWindow::choose(const QString& code) {
    if (code.isEmpty())
        return;
    dismiss();
    if (m_hooks.selectLanguage)
        m_hooks.selectLanguage(code);
}

} // namespace quillo
