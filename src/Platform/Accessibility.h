#pragma once

#include "Concurrency/Task.h"

#include <QString>

#include <chrono>
#include <optional>

namespace quillo {

/// The element that has the keyboard focus.
struct FocusedElement {
    QString role; ///< one of the role names used in the code: "AXTextField", "AXTextArea", "AXButton", ...
    bool isPassword = false;
    bool isValueSettable = false;
    bool hasNumberOfCharacters = false;
};

/// The accessibility bus. Main thread; queries are asynchronous, so that a hung application costs the deadline at most.
class Accessibility {
public:
    virtual ~Accessibility() = default;

    /// The focused element; nothing when it is unknown.
    virtual Task<std::optional<FocusedElement>> focusedElement(std::chrono::milliseconds deadline) = 0;
    /// The character before the caret of the focused element, empty at the beginning of its text; nothing when it is
    /// unknown.
    virtual Task<std::optional<QString>> characterBeforeCaret(std::chrono::milliseconds deadline) {
        (void)deadline;
        co_return std::nullopt;
    }
    /// Whether another program has grabbed the keyboard, or a password field is known to have the focus.
    virtual Task<bool> isSecureInputEnabled(std::chrono::milliseconds deadline) = 0;
};

} // namespace quillo
