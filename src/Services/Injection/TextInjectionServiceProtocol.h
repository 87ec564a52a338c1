#pragma once

#include "Concurrency/Task.h"
#include "Services/Settings/InjectionMode.h"

#include <QString>

#include <functional>
#include <optional>
#include <stdexcept>

namespace quillo {

/// What is known of the text after an injection.
enum class Delivery {
    read,          ///< the target fetched the text from the clipboard
    typed,         ///< every key event was sent
    unconfirmed,   ///< nobody fetched it in time; the text is still on the clipboard
    clipboardOnly, ///< the desktop lets us send no keys: the text waits on the clipboard for the user to paste
};

class TextInjectionError : public std::runtime_error {
public:
    enum class Code { eventSource, keyboardEvent, secureInput };
    explicit TextInjectionError(Code code);
    [[nodiscard]] Code code() const { return m_code; }

private:
    Code m_code;
};

/// Puts text where the cursor is. Main thread.
class TextInjectionServiceProtocol {
public:
    virtual ~TextInjectionServiceProtocol() = default;

    /// Called once for each application that does not tell which of its fields is a password field, before any text is
    /// inserted there: the user is to know that no such field is refused in it.
    std::function<void(const QString& application)> onSecretsUnknown;

    /// Throws TextInjectionError. With `restoreClipboard` the clipboard is given back after the target has read the
    /// text; an unconfirmed text is left on it.
    virtual Task<Delivery> inject(QString text, InjectionMode mode, bool restoreClipboard) = 0;
    /// Called when a recording begins: what can be looked up ahead need not be waited for when the text is there.
    virtual Task<> prepareForInjection() { co_return; }
    /// Whether a text field has the focus; true when it cannot be told.
    virtual Task<bool> hasFocusedTextField() = 0;
    /// The last text that is not known to have arrived; empty when there is none.
    [[nodiscard]] virtual QString lastUndelivered() const { return {}; }
    /// Pastes `lastUndelivered` once more. Throws TextInjectionError.
    virtual Task<Delivery> insertAgain() { return inject(lastUndelivered(), InjectionMode::paste, false); }
};

} // namespace quillo
