#pragma once

#include "Platform/Accessibility.h"

namespace quillo::test {

/// A focused element described by a test.
class MockAccessibility final : public Accessibility {
public:
    std::optional<FocusedElement> element = FocusedElement{.role = u"AXTextField"_qs};
    SecureInput secrecy = SecureInput::off;
    std::optional<QString> beforeCaret;
    bool isTerminal = false;

    Task<std::optional<FocusedElement>> focusedElement(std::chrono::milliseconds) override { co_return element; }
    Task<std::optional<QString>> characterBeforeCaret(std::chrono::milliseconds) override { co_return beforeCaret; }
    Task<SecureInput> secureInput(int64_t, std::chrono::milliseconds) override { co_return secrecy; }
    [[nodiscard]] bool foundTerminal(int64_t) const override { return isTerminal; }
};

} // namespace quillo::test
