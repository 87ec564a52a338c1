#pragma once

#include "UI/Pill/PillViewModel.h"
#include "UI/Pill/PillWindow.h"
#include "UI/QmlEngineHost.h"
#include "UI/UserInterfaceHooks.h"

#include <memory>

namespace quillo {

/// Brings the pill's window and its view model together. The window is made when it is first needed, or by `prepare`.
class FloatingPill {
public:
    /// All three must outlive the pill.
    FloatingPill(PillViewModel& viewModel, QmlEngineHost& host, const UserInterfaceHooks& hooks);
    ~FloatingPill();
    FloatingPill(const FloatingPill&) = delete;
    FloatingPill& operator=(const FloatingPill&) = delete;

    /// Loads the window without showing it.
    void prepare();
    /// The window; nothing before it was needed.
    [[nodiscard]] PillWindow* window() const { return m_window.get(); }

private:
    PillViewModel& m_viewModel;
    QmlEngineHost& m_host;
    const UserInterfaceHooks& m_hooks;
    std::unique_ptr<PillWindow> m_window;
    std::unique_ptr<QQuickItem> m_item;
    QMetaObject::Connection m_visibility;
};

} // namespace quillo
