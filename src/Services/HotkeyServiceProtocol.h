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

    std::function<void()> onHotkeyDown;              ///< start recording
    std::function<void()> onHotkeyUp;                ///< stop recording
    std::function<void(bool)> onHandsOffModeChanged; ///< recording goes on without the key held
    std::function<void()> onCancel;                  ///< Escape during a recording, when the setting says so
};

} // namespace quillo
