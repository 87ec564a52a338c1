#pragma once

#include "App/Dictation/Dictation.h"
#include "Platform/SessionWatch.h"
#include "Services/Hotkeys/HotkeyServiceProtocol.h"

namespace quillo {

/// Ends the dictation when the user leaves the desktop: what was said goes to the history, and nothing is typed where
/// the user no longer looks. While a dictation is under way, sleep waits for that. Main thread.
class SessionGuard {
public:
    /// `notify` informs the user that a dictation was ended. The references must outlive this object.
    SessionGuard(SessionWatch& watch, HotkeyServiceProtocol& hotkeys, Dictation& dictation,
                 std::function<void()> notify);

private:
    void userLeft();

    HotkeyServiceProtocol& m_hotkeys;
    Dictation& m_dictation;
    std::function<void()> m_notify;
    Observation m_observation;
};

} // namespace quillo
