#include "UI/Language/LanguagePickerWindow.h"

#include "UI/Texts.h"
#include "UI/Tray/TrayIcons.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

namespace quillo {

namespace {

constexpr QSize preferredSize{420, 520};

} // namespace

LanguagePickerWindow::LanguagePickerWindow(QmlEngineHost& host, const UserInterfaceHooks& hooks)
    : m_hooks(hooks), m_languages(hooks.listLanguages ? hooks.listLanguages() : InterfaceChoices()) {
    setTitle(Texts::lookUp(QStringLiteral("languagePicker.title")));
    setIcon(applicationIcon());
    setFlags(Qt::Dialog);
    setMinimumSize({320, 320});
    m_item = host.createItem(QStringLiteral("Language/LanguagePicker.qml"),
                             {{QStringLiteral("languages"), &m_languages}, {QStringLiteral("picker"), this}});
    m_item->setParentItem(contentItem());
    const auto fit = [this] { m_item->setSize(size()); };
    connect(this, &QWindow::widthChanged, this, fit);
    connect(this, &QWindow::heightChanged, this, fit);
    resize(preferredSize);
    fit();
}

LanguagePickerWindow::~LanguagePickerWindow() = default;

void LanguagePickerWindow::present() {
    if (!isVisible())
        if (auto* target = QGuiApplication::screenAt(QCursor::pos())) {
            const auto area = target->availableGeometry();
            resize(size().boundedTo(area.size()));
            setScreen(target);
            setPosition(area.center() - QPoint(width() / 2, height() / 2));
        }
    show();
    raise();
    requestActivate();
    m_item->forceActiveFocus();
}

void LanguagePickerWindow::choose(const QString& code) {
    if (code.isEmpty())
        return;
    close();
    if (m_hooks.selectLanguage)
        m_hooks.selectLanguage(code);
}

void LanguagePickerWindow::dismiss() { close(); }

} // namespace quillo
