#pragma once

#include "Concurrency/Clock.h"

#include <QStringList>

#include <optional>
#include <variant>
#include <vector>

namespace quillo {

struct HotkeyConfig;

/// The state of the two hotkeys and what each of their events does to it. It has no clock, no timers and no callbacks:
/// the caller gives the time and carries out what a transition returns.
class HotkeyState {
public:
    static constexpr auto stopDelayForDoubleTap = std::chrono::milliseconds(150);
    static constexpr auto toggleCooldown = std::chrono::milliseconds(500);
    static constexpr auto chordInterval = std::chrono::milliseconds(300);

    /// What the caller has to do, in this order.
    enum class Effect { begin, handsOff, noHandsOff, stop, cancel };
    struct Transition {
        QStringList log;
        std::vector<Effect> effects;
    };

    // For the instants: when the key moved, which may be before now.
    Transition handleHoldKeyDown(Clock::Instant at, Clock::Duration doubleTapInterval, const HotkeyConfig& config);
    Transition handleHoldKeyUp(Clock::Instant at, Clock::Duration doubleTapInterval);
    /// Ignored within the cooldown.
    Transition handleToggleKeyPress(Clock::Instant at, const HotkeyConfig& config);
    /// `stopDueAt` has come.
    Transition stopAfterDelay(const HotkeyConfig& config);
    /// Cancels what is recorded, for the reason in the log.
    Transition abandon(const QString& reason);
    /// Ends what is recorded and forgets the keys.
    Transition reset();
    /// A recording runs that no hotkey began: the held key ends it, otherwise the toggle hotkey.
    void recordingBegan();
    /// The recording has ended for another reason than a hotkey.
    void recordingEnded();
    /// The same, and a key that is down no longer counts as pressed: its release may never come.
    void interrupted();

    [[nodiscard]] bool isHotkeyPressed() const { return m_pressed.has_value(); }
    [[nodiscard]] bool isRecording() const { return !std::holds_alternative<Idle>(m_recording); }
    [[nodiscard]] bool isHandsOffMode() const { return std::holds_alternative<HandsOff>(m_recording); }
    [[nodiscard]] bool isToggleRecording() const;
    /// Whether another key pressed at `at` makes the hold key part of a chord. After a release in between (a tap that
    /// became a double tap) it is not a chord any more.
    [[nodiscard]] bool isChord(Clock::Instant at) const;
    /// When to stop after a release, unless a key comes before.
    [[nodiscard]] std::optional<Clock::Instant> stopDueAt() const;

private:
    struct Idle {
        std::optional<Clock::Instant> lastKeyUpTime;
    };
    /// Recording while the hold key is down.
    struct Holding {};
    /// Still recording after the release: it may be the first of two taps.
    struct PendingStop {
        Clock::Instant lastKeyUpTime;
        Clock::Instant dueAt;
    };
    /// Recording without a key.
    struct HandsOff {
        bool isToggleRecording = false;
    };
    struct PressedKey {
        Clock::Instant at;
        bool alreadyStoppedOnKeyDown = false; ///< its release means nothing
    };

    [[nodiscard]] std::optional<Clock::Instant> lastKeyUpTime() const;
    [[nodiscard]] bool checkDoubleTap(Clock::Instant at, Clock::Duration interval, QStringList& log) const;
    void ignoreRelease();

    std::variant<Idle, Holding, PendingStop, HandsOff> m_recording;
    std::optional<PressedKey> m_pressed;
    std::optional<Clock::Instant> m_lastToggleActionTime;
};

} // namespace quillo
