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
    bool isValueSettable = false;
    bool hasNumberOfCharacters = false;
};

/// Whether what is inserted now would go into a secret.
enum class SecureInput {
    off,        ///< the focused element is known and is no password field
    on,         ///< a password field has the focus, or another program holds the keyboard for itself
    unknown,    ///< the program in front does not tell what has the focus in it
    unanswered, ///< the program in front tells such things and did not answer in time
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
    /// `process` is that of the window in front, 0 where it is not known. Where no event has told what has the focus in
    /// that program, it is looked for and remembered: asked once ahead, the question costs little when it matters.
    virtual Task<SecureInput> secureInput(int64_t process, std::chrono::milliseconds deadline) = 0;
};

} // namespace quillo
