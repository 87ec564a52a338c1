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

/// Pastes or types text into whatever has the focus. Main thread; the references outlive the service.
///
/// `inject` returns as soon as the target has read the text, and gives the clipboard back a moment later. A text that
/// nobody reads in time stays on the clipboard. Injections run one after the other.
class TextInjectionService final : public TextInjectionServiceProtocol {
public:
    /// Longer texts are pasted in typing mode too: they would take the keyboard for many seconds.
    static constexpr qsizetype longestTypedText = 2000; ///< UTF-16 code units
    /// How long the target has to read the text, plus one millisecond per thousand characters.
    static constexpr auto readDeadline = std::chrono::milliseconds(500);
    /// How long after the last read the clipboard is given back: some applications read twice.
    static constexpr auto restoreGrace = std::chrono::milliseconds(80);
    /// How long after the keys the clipboard is given back where the desktop does not reveal who has read it.
    static constexpr auto unknownReaderTime = std::chrono::milliseconds(800);

    /// A text within this time of the one before, in the same window, goes on where that ended.
    static constexpr auto continuationTime = std::chrono::minutes(2);

    /// While `smartSpacing` answers true, a text that follows its predecessor in the same field gets a blank in front
    /// where one is missing; only where the accessibility bus tells that the caret is still behind the predecessor.
    TextInjectionService(Pasteboard& pasteboard, KeyInjector& injector, Applications& applications,
                         Accessibility& accessibility, Clock& clock, std::function<bool()> smartSpacing = {});
    ~TextInjectionService() override;
    TextInjectionService(const TextInjectionService&) = delete;
    TextInjectionService& operator=(const TextInjectionService&) = delete;

    Task<Delivery> inject(QString text, InjectionMode mode, bool restoreClipboard) override;
    Task<bool> hasFocusedTextField() override;

    /// Reads the clipboard and finds out what has the focus ahead, so that a slow owner or a busy program costs nothing
    /// when the text is there; best called when a recording begins. What was read counts only while nobody changes the
    /// clipboard, and what was found only while the focus stays.
    Task<> prepareForInjection() override;

    [[nodiscard]] QString lastUndelivered() const override;
    Task<Delivery> insertAgain() override;

private:
    struct State;
    std::shared_ptr<State> m_state;
};

} // namespace quillo
