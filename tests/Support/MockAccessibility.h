#pragma once

#include "Platform/Accessibility.h"

namespace quillo::test {

/// A focused element described by a test.
class MockAccessibility final : public Accessibility {
public:
    std::optional<FocusedElement> element = FocusedElement{.role = QStringLiteral("AXTextField")};
    bool secureInput = false;
    std::optional<QString> beforeCaret;

    Task<std::optional<FocusedElement>> focusedElement(std::chrono::milliseconds) override { co_return element; }
    Task<std::optional<QString>> characterBeforeCaret(std::chrono::milliseconds) override { co_return beforeCaret; }
    Task<bool> isSecureInputEnabled(std::chrono::milliseconds) override { co_return secureInput; }
};

} // namespace quillo::test
