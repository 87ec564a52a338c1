#pragma once

#include "Concurrency/Task.h"
#include "Services/Settings/InjectionMode.h"

#include <QString>

#include <functional>
#include <optional>
#include <stdexcept>

namespace quillo {

/// The result of an injection.
enum class Delivery {
    read,          ///< the target fetched the text from the clipboard
    typed,         ///< every key event was sent
    unconfirmed,   ///< no program fetched it in time; the text is still on the clipboard
    clipboardOnly, ///< the desktop does not let us send keys: the text is on the clipboard for the user to paste
};

class TextInjectionError : public std::runtime_error {
public:
    enum class Code { eventSource, keyboardEvent, secureInput };
    explicit TextInjectionError(Code code);
    [[nodiscard]] Code code() const { return m_code; }

private:
    Code m_code;
};

/// Inserts text at the cursor. Main thread.
class TextInjectionServiceProtocol {
public:
    virtual ~TextInjectionServiceProtocol() = default;

    /// Called once for each application that does not expose its password fields, before any text is inserted there, so
    /// that the user knows that they are not protected.
    std::function<void(const QString& application)> onSecretsUnknown;

    /// Throws TextInjectionError. With `restoreClipboard` the clipboard is restored after the target has read the text;
    /// an unconfirmed text stays on it.
    virtual Task<Delivery> inject(QString text, InjectionMode mode, bool restoreClipboard) = 0;
    /// Call it when a recording begins, to prepare in advance what would delay the text later.
    virtual Task<> prepareForInjection() { co_return; }
    /// Whether a text field has the focus; true when it is unknown.
    virtual Task<bool> hasFocusedTextField() = 0;
    /// The last text that is not known to have arrived; empty when there is none.
    [[nodiscard]] virtual QString lastUndelivered() const { return {}; }
    /// Pastes `lastUndelivered` again. Throws TextInjectionError.
    virtual Task<Delivery> insertAgain() { return inject(lastUndelivered(), InjectionMode::paste, false); }
};

} // namespace quillo
