#pragma once

#include "App/Dictation/Dictation.h"
#include "App/Dictation/KeyRefusal.h"
#include "Services/Hotkeys/HotkeyServiceProtocol.h"

#include <functional>

namespace quillo {

/// Connects the hotkeys to start, stop and cancel the dictation. Main thread.
class DictationHotkeys {
public:
    /// The references must outlive this object.
    DictationHotkeys(HotkeyServiceProtocol& service, Dictation& dictation);
    /// Stops the service, so that no key starts a dictation.
    ~DictationHotkeys();
    DictationHotkeys(const DictationHotkeys&) = delete;
    DictationHotkeys& operator=(const DictationHotkeys&) = delete;

    /// Starts the service. False when the desktop does not let us observe keys; the log then gives the next step.
    bool arm();
    void disarm() { m_service.stop(); }
    /// While set, presses (true) and releases (false) of the hold key go to the observer and do not start a dictation.
    /// An empty function ends the trial.
    void observe(std::function<void(bool isDown)> observer) { m_observer = std::move(observer); }

    /// No key starts a dictation while `refusal` says so: the keys of a locked screen are not for us.
    void refuse(KeyRefusal refusal) { m_refusal.emplace(std::move(refusal)); }

private:
    void handle(bool isDown, const RecordingAction& action);

    HotkeyServiceProtocol& m_service;
    Dictation& m_dictation;
    std::function<void(bool isDown)> m_observer;
    std::optional<KeyRefusal> m_refusal;
};

} // namespace quillo
