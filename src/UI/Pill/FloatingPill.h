#pragma once

#include "UI/Foundation/UserInterfaceHooks.h"
#include "UI/Pill/PillViewModel.h"
#include "UI/Pill/PillWindow.h"
#include "UI/Window/QmlEngineHost.h"

#include <memory>

namespace quillo {

/// Connects the pill's window with its view model. The window is created when it is first needed, or by `prepare`.
class FloatingPill {
public:
    /// All of them must outlive the pill.
    FloatingPill(PillViewModel& viewModel, QmlEngineHost& host, const UserInterfaceHooks& hooks, WindowHints& hints);
    ~FloatingPill();
    FloatingPill(const FloatingPill&) = delete;
    FloatingPill& operator=(const FloatingPill&) = delete;

    /// Loads the window without showing it.
    void prepare();
    /// The window; null until it is first needed.
    [[nodiscard]] PillWindow* window() const { return m_window.get(); }

private:
    PillViewModel& m_viewModel;
    QmlEngineHost& m_host;
    const UserInterfaceHooks& m_hooks;
    WindowHints& m_hints;
    std::unique_ptr<PillWindow> m_window;
    std::unique_ptr<QQuickItem> m_item;
    QMetaObject::Connection m_visibility;
};

} // namespace quillo
