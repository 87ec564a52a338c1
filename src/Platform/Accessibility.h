#pragma once

#include "Concurrency/Task.h"

#include <QString>

#include <chrono>
#include <optional>

namespace quillo {

/// The element that has the keyboard focus.
struct FocusedElement {
    QString role; ///< in the role names of the code: "AXTextField", "AXTextArea", "AXButton", ...
    bool isPassword = false;
    bool isValueSettable = false;
    bool hasNumberOfCharacters = false;
};

/// The accessibility bus. Main thread; asked asynchronously, so that a hung application costs the deadline at most.
class Accessibility {
public:
    virtual ~Accessibility() = default;

    /// The focused element; nothing when it cannot be told.
    virtual Task<std::optional<FocusedElement>> focusedElement(std::chrono::milliseconds deadline) = 0;
    /// The character before the caret of the focused element, empty at the beginning of its text; nothing when it
    /// cannot be told.
    virtual Task<std::optional<QString>> characterBeforeCaret(std::chrono::milliseconds deadline) {
        (void)deadline;
        co_return std::nullopt;
    }
    /// Another program holds the keyboard for itself, or a password field has the focus as far as is known.
    virtual Task<bool> isSecureInputEnabled(std::chrono::milliseconds deadline) = 0;
};

} // namespace quillo
