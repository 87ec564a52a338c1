#pragma once

#include "Platform/Accessibility.h"

namespace quillo::test {

/// A focused element described by a test.
class MockAccessibility final : public Accessibility {
public:
    std::optional<FocusedElement> element = FocusedElement{.role = u"AXTextField"_qs};
    SecureInput secrecy = SecureInput::off;
    std::optional<QString> beforeCaret;

    Task<std::optional<FocusedElement>> focusedElement(std::chrono::milliseconds) override { co_return element; }
    Task<std::optional<QString>> characterBeforeCaret(std::chrono::milliseconds) override { co_return beforeCaret; }
    Task<SecureInput> secureInput(int64_t, std::chrono::milliseconds) override { co_return secrecy; }
};

} // namespace quillo::test
