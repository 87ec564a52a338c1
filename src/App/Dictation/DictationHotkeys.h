#pragma once

#include "App/Dictation/Dictation.h"
#include "Services/Hotkeys/HotkeyServiceProtocol.h"

#include <functional>

namespace quillo {

/// Lets the hotkeys start, stop and cancel the dictation. Main thread.
class DictationHotkeys {
public:
    /// The references outlive this object.
    DictationHotkeys(HotkeyServiceProtocol& service, Dictation& dictation);
    /// Stops the service: nothing starts a dictation any more.
    ~DictationHotkeys();
    DictationHotkeys(const DictationHotkeys&) = delete;
    DictationHotkeys& operator=(const DictationHotkeys&) = delete;

    /// Starts the service. False where the desktop shows us no keys; the log then says what can be done.
    bool arm();
    void disarm() { m_service.stop(); }
    /// While set, presses (true) and releases (false) of the hold key go to the observer and start no dictation. An
    /// empty function ends the trial.
    void observe(std::function<void(bool isDown)> observer) { m_observer = std::move(observer); }

private:
    void handle(bool isDown, const RecordingAction& action);

    HotkeyServiceProtocol& m_service;
    Dictation& m_dictation;
    std::function<void(bool isDown)> m_observer;
};

} // namespace quillo
