#include "UI/Pill/FloatingPill.h"

namespace quillo {

FloatingPill::FloatingPill(PillViewModel& viewModel, QmlEngineHost& host, const UserInterfaceHooks& hooks,
                           WindowHints& hints)
    : m_viewModel(viewModel), m_host(host), m_hooks(hooks), m_hints(hints) {
    const auto follow = [this] {
        if (m_viewModel.isVisible())
            prepare();
        if (m_window)
            m_window->setShown(m_viewModel.isVisible());
    };
    m_visibility = QObject::connect(&m_viewModel, &PillViewModel::visibleChanged, follow);
    follow();
}

FloatingPill::~FloatingPill() { QObject::disconnect(m_visibility); }

void FloatingPill::prepare() {
    if (m_window)
        return;
    m_window = std::make_unique<PillWindow>(m_hooks, m_hints);
    m_item = m_host.createItem(QStringLiteral("Pill/Pill.qml"), {{QStringLiteral("pill"), &m_viewModel},
                                                                 {QStringLiteral("pillWindow"), m_window.get()}});
    m_item->setParentItem(m_window->contentItem());
    m_window->setPillSize({m_item->property("maximumWidth").toInt(), m_item->property("maximumHeight").toInt()});
    m_item->setSize(m_window->size());
    // Creating the native window takes a large part of the time until the pill first appears.
    m_window->prepare();
}

} // namespace quillo
