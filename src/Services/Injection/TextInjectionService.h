#pragma once

#include "Concurrency/Clock.h"
#include "Concurrency/TaskRunner.h"
#include "Platform/Accessibility.h"
#include "Platform/Applications.h"
#include "Platform/KeyInjector.h"
#include "Platform/Pasteboard.h"
#include "Services/Injection/TextInjectionServiceProtocol.h"

#include <functional>
#include <memory>

namespace quillo {

/// Pastes or types text into the focused window. Main thread; the references must outlive the service.
///
/// `inject` returns as soon as the target has read the text; the clipboard is restored a moment later. A text that is
/// not read in time stays on the clipboard. Injections run one after the other.
class TextInjectionService final : public TextInjectionServiceProtocol {
public:
    /// Longer texts are pasted in typing mode too, because typing would block the keyboard for many seconds.
    static constexpr qsizetype longestTypedText = 2000; ///< UTF-16 code units
    /// Time limit for the target to read the text, plus one millisecond per thousand characters.
    static constexpr auto readDeadline = std::chrono::milliseconds(500);
    /// Delay between the last read and the restored clipboard: some applications read twice.
    static constexpr auto restoreGrace = std::chrono::milliseconds(80);
    /// How long after the keys the clipboard is given back where the desktop does not reveal who has read it.
    static constexpr auto unknownReaderTime = std::chrono::milliseconds(800);

    /// A text within this time after the previous one, in the same window, continues it.
    static constexpr auto continuationTime = std::chrono::minutes(2);

    /// While `smartSpacing` returns true, a text that follows another one in the same field gets a space before it if
    /// one is missing; only if the accessibility bus confirms that the caret is still after the previous text.
    TextInjectionService(Pasteboard& pasteboard, KeyInjector& injector, Applications& applications,
                         Accessibility& accessibility, Clock& clock, std::function<bool()> smartSpacing = {});
    ~TextInjectionService() override;
    TextInjectionService(const TextInjectionService&) = delete;
    TextInjectionService& operator=(const TextInjectionService&) = delete;

    Task<Delivery> inject(QString text, InjectionMode mode, bool restoreClipboard) override;
    Task<bool> hasFocusedTextField() override;

    /// Reads the clipboard and determines the focused element ahead, so that a slow owner or a busy program does not
    /// delay the text; call it when a recording begins. The results are used only if clipboard and focus have not
    /// changed.
    Task<> prepareForInjection() override;

    [[nodiscard]] QString lastUndelivered() const override;
    Task<Delivery> insertAgain() override;

private:
    struct State;
    std::shared_ptr<State> m_state;
};

} // namespace quillo
