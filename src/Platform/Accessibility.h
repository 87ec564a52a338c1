#pragma once

#include "Concurrency/Task.h"

#include <QString>

#include <chrono>
#include <cstdint>
#include <optional>

namespace quillo {

/// The element that has the keyboard focus.
struct FocusedElement {
    QString role; ///< one of the role names used in the code: "AXTextField", "AXTextArea", "AXButton", ...
    bool isPassword = false;
    bool isTerminal = false; ///< of a program of any kind: an editor may have one in a panel
    bool isValueSettable = false;
    bool hasNumberOfCharacters = false;
};

/// Whether text inserted now would go into a secret field.
enum class SecureInput {
    off,        ///< the focused element is known and not a password field
    on,         ///< a password field has the focus, or another program has grabbed the keyboard
    unknown,    ///< the program in front does not report its focused element
    unanswered, ///< the program in front supports the query, but did not answer in time
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
    /// `process` is that of the window in front, 0 when it is unknown. If no event has reported the focused element of
    /// that program, it is searched for and cached, so that a query in advance makes later ones cheap.
    virtual Task<SecureInput> secureInput(int64_t process, std::chrono::milliseconds deadline) = 0;
    /// Whether the last query of `secureInput` found a terminal in focus in that program. Asks nothing.
    [[nodiscard]] virtual bool foundTerminal(int64_t process) const {
        (void)process;
        return false;
    }
};

} // namespace quillo
