#pragma once

#include <functional>

namespace quillo {

/// Turns the two configured hotkeys into three callbacks. Main thread; the callbacks run there too, posted.
class HotkeyServiceProtocol {
public:
    virtual ~HotkeyServiceProtocol() = default;

    [[nodiscard]] virtual bool isRunning() const = 0;
    virtual void start() = 0;
    virtual void stop() = 0;
    /// Reports whether a recording runs, however it was started. Called on every change of the store's state, and after
    /// a refused `onHotkeyDown`.
    virtual void setRecordingActive(bool active) = 0;

    std::function<void()> onHotkeyDown;              ///< start recording
    std::function<void()> onHotkeyUp;                ///< stop recording
    std::function<void(bool)> onHandsOffModeChanged; ///< whether recording continues without the key held
    std::function<void()> onCancel;                  ///< Escape during a recording, when the setting says so
    std::function<void()> onConfigurationChanged;    ///< the hotkeys were changed; the service restarts now
    std::function<void()> onKeysReturned; ///< the service runs again after the desktop had withdrawn the keys
};

} // namespace quillo
