#pragma once

#include "Concurrency/Task.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <stop_token>

namespace quillo {

/// The chord that pastes in the target.
enum class PasteChord {
    controlV,
    controlShiftV, ///< terminals that paste the clipboard with it
    shiftInsert,   ///< old terminals; pastes the primary selection
};

/// The result of injecting; the caller maps a failure to its own error.
enum class InjectionStatus {
    delivered,
    noEventSource,
    noKeyboardEvent,
    cancelled,
    /// Nothing was typed: the text needs spare keys assigned to its characters, and the target does not report when it
    /// has processed them.
    untypable,
};

/// Sends synthetic key events to the focused window. Called on the main thread; never blocks it.
class KeyInjector {
public:
    virtual ~KeyInjector() = default;

    [[nodiscard]] virtual bool isAvailable() const = 0;
    /// Presses and releases `chord`. Keys that the user holds down are released first, so that they do not mix into it.
    /// `beforeKeys` is called right before the first key is sent, on the injector's own thread.
    virtual Task<InjectionStatus> pressChord(PasteChord chord, std::function<void()> beforeKeys = {}) = 0;
    /// Types `text` so that the focused application receives exactly its characters, on any keyboard layout, and leaves
    /// the keyboard mapping as it was. `text` contains no control characters except new line and tab.
    virtual Task<InjectionStatus> typeText(QString text, std::stop_token token) = 0;
};

} // namespace quillo
