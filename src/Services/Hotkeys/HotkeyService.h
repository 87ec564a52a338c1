#pragma once

#include "Concurrency/Clock.h"
#include "Services/Hotkeys/HotkeyConfig.h"
#include "Services/Hotkeys/HotkeyServiceProtocol.h"

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
/// recording it began is cancelled. Main thread. Restarts itself when the configured hotkeys change.
class HotkeyService final : public HotkeyServiceProtocol {
public:
    static constexpr auto stopDelayForDoubleTap = std::chrono::milliseconds(150);
    static constexpr auto toggleCooldown = std::chrono::milliseconds(500);
    static constexpr auto chordInterval = std::chrono::milliseconds(300);

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

    /// Combinations that another program has grabbed.
    [[nodiscard]] std::vector<KeyCombination> unavailableCombinations() const;
    /// Logs every event. Off by default, because what the user types is private.
    void setDebugMode(bool on) { m_debugMode = on; }

private:
    enum class Ending { stop, cancel };

    void handle(const KeyEvent& event);
    void handleKeyDown(const KeyEvent& event);
    void handleFlagsChanged(const KeyEvent& event);
    void handleState(KeyEventSourceState state);
    // `at`: when the key moved, which may be before now.
    void handleHoldKeyDown(Clock::Instant at);
    void handleHoldKeyUp(Clock::Instant at);
    void handleToggleKeyPress(Clock::Instant at);
    [[nodiscard]] bool checkDoubleTap(Clock::Instant pressedAt) const;
    [[nodiscard]] Clock::Duration doubleTapInterval() const;
    [[nodiscard]] bool isEscapeConsumed() const;

    void begin();
    void end(Ending ending);
    void setHandsOff(bool on);
    void abandon(const QString& reason);
    void clearRecording();
    void releaseIfNotDown();
    void watchHeldKey();
    void scheduleRestart();
    void updateConsumed();
    void deliver(std::function<void()> callback);

    KeyEventSource& m_source;
    Clock& m_clock;
    UserSettings& m_settings;
    QObject m_context; ///< ends the connections with this object
    std::shared_ptr<int> m_alive = std::make_shared<int>();

    HotkeyConfig m_config;
    bool m_isRunning = false;
    bool m_debugMode = false;
    bool m_isHotkeyPressed = false;
    bool m_isToggleRecording = false;
    bool m_isHandsOffMode = false;
    bool m_alreadyStoppedOnKeyDown = false;
    bool m_isRecording = false; ///< begun and not yet ended, as far as this service knows
    bool m_wasSeenDown = false; ///< the platform has confirmed the press, so its "not down" can be trusted
    bool m_escapeConsumed = false;
    bool m_restartPending = false;
    int m_startsUnderway = 0;
    std::optional<Clock::Instant> m_lastKeyUpTime;
    std::optional<Clock::Instant> m_lastToggleActionTime;
    Clock::Instant m_pressedAt;
    Clock::Duration m_restartDelay = std::chrono::seconds(1);
    Clock::TimerHandle m_pendingStop;
    Clock::TimerHandle m_heldKeyWatch;
    Clock::TimerHandle m_restart;
};

} // namespace quillo
