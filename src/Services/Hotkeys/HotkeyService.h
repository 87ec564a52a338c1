#pragma once

#include "Concurrency/Clock.h"
#include "Services/Hotkeys/HotkeyConfig.h"
#include "Services/Hotkeys/HotkeyServiceProtocol.h"
#include "Services/Hotkeys/HotkeyState.h"
#include "Services/Hotkeys/KeyCapture.h"

#include <QObject>

#include <memory>
#include <optional>

namespace quillo {

/// Turns the key events of the session into start, stop, hands-off and cancel.
///
/// The hold hotkey records while it is held; after a double tap the recording continues without it. The toggle hotkey
/// starts and stops. Each `onHotkeyDown` is followed by exactly one `onHotkeyUp` or `onCancel`, even if the keyboard is
/// lost, unless `setRecordingActive(false)` reported that the recording has ended.
///
/// A modifier used in a chord with another key shortly after it went down ("Right Super+L") was not meant for us: the
/// recording it began is cancelled. A combination that another program holds does nothing here. Main thread. Restarts
/// itself when the configured hotkeys change.
class HotkeyService final : public HotkeyServiceProtocol {
public:
    /// The references must outlive the service.
    HotkeyService(KeyEventSource& source, Clock& clock, UserSettings& settings);
    ~HotkeyService() override;
    HotkeyService(const HotkeyService&) = delete;
    HotkeyService& operator=(const HotkeyService&) = delete;

    [[nodiscard]] bool isRunning() const override { return m_isRunning; }
    void start() override;
    /// Ends a recording that the hotkeys began.
    void stop() override;

    /// Escape is withheld from the focused application only during a recording, and the toggle hotkey stops a recording
    /// that was started elsewhere.
    void setRecordingActive(bool active) override;
    void forgetPressedKeys() override;

    [[nodiscard]] std::vector<HotkeyConflict> conflicts() const override;
    [[nodiscard]] bool isFree(const KeyCombination& combination) const override;
    void captureKey(std::function<void(const KeyCombination&)> onKey) override;

    /// Logs every event. Off by default, because the log then contains what the user types.
    void setDebugMode(bool on) { m_debugMode = on; }

private:
    /// The choice of a key that is under way.
    struct Capture {
        KeyCapture key;
        std::function<void(const KeyCombination&)> onKey;
    };
    /// The next attempts to get what the desktop or another program denies.
    struct Retry {
        Clock::Duration restartDelay = std::chrono::seconds(1);
        Clock::TimerHandle restart;
        Clock::TimerHandle grab;
    };

    // Interpretation of the events (HotkeyService.cpp). For the instants: when the key moved, which may be before now.
    void handle(const KeyEvent& event);
    void handleKeyDown(const KeyEvent& event);
    void handleFlagsChanged(const KeyEvent& event);
    void capture(const KeyEvent& event);
    void handleHoldKeyDown(Clock::Instant at);
    void handleHoldKeyUp(Clock::Instant at);
    /// `at` is the time of what caused the transition.
    void carryOut(const HotkeyState::Transition& transition, Clock::Instant at);
    void stateChanged();
    void releaseIfNotDown();
    void watchHeldKey();
    [[nodiscard]] Clock::Duration doubleTapInterval() const;
    [[nodiscard]] bool isEscapeConsumed() const;
    [[nodiscard]] bool isHeldByOther(const KeyCombination& combination) const;

    // Management of the source (HotkeyServiceSource.cpp).
    void handleState(KeyEventSourceState state);
    void configurationChanged();
    void scheduleRestart();
    void scheduleGrab();
    void updateConsumed();
    void deliver(std::function<void()> callback);

    KeyEventSource& m_source;
    Clock& m_clock;
    UserSettings& m_settings;
    QObject m_context; ///< ends the connections with this object
    std::shared_ptr<int> m_alive = std::make_shared<int>();

    HotkeyConfig m_config;
    HotkeyState m_state;
    bool m_isRunning = false;
    bool m_debugMode = false;
    bool m_wasSeenDown = false; ///< the platform has confirmed the press, so its "not down" can be trusted
    bool m_escapeConsumed = false;
    bool m_restartPending = false;
    int m_startsUnderway = 0; ///< posted and not yet delivered
    std::optional<Capture> m_capture;
    Retry m_retry;
    Clock::TimerHandle m_pendingStop;
    Clock::TimerHandle m_heldKeyWatch;
};

} // namespace quillo
