#pragma once

#include "Concurrency/Task.h"

#include <QString>

#include <cstdint>
#include <stop_token>

namespace quillo {

/// The chord that pastes in the target.
enum class PasteChord {
    controlV,
    controlShiftV, ///< terminals that paste the clipboard with it
    shiftInsert,   ///< old terminals; pastes the primary selection
};

/// Result of injecting: a status the caller turns into its own error.
enum class InjectionStatus {
    delivered,
    noEventSource,
    noKeyboardEvent,
    cancelled,
    /// Nothing was typed: the text needs keys that are lent to its characters for a moment, and the target does not
    /// tell when it has understood them.
    untypable,
};

/// Sends synthetic key events to whatever has the focus. Called on the main thread; nothing blocks it.
class KeyInjector {
public:
    virtual ~KeyInjector() = default;

    [[nodiscard]] virtual bool isAvailable() const = 0;
    /// Presses and releases `chord`. Keys that are held down are lifted for its duration, so that nothing mixes into
    /// it.
    virtual Task<InjectionStatus> pressChord(PasteChord chord) = 0;
    /// Types `text` so that the focused application receives exactly its characters, on any keyboard layout, and leaves
    /// the keyboard mapping as it was. `text` holds no control character but new line and tab.
    virtual Task<InjectionStatus> typeText(QString text, std::stop_token token) = 0;
};

} // namespace quillo
