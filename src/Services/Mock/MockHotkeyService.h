#pragma once

#include "Services/Hotkeys/HotkeyServiceProtocol.h"

namespace quillo {

/// Hotkeys that a test presses by calling the callbacks.
class MockHotkeyService final : public HotkeyServiceProtocol {
public:
    bool canStart = true;
    int starts = 0;
    bool isRecordingActive = false;

    [[nodiscard]] bool isRunning() const override { return m_isRunning; }
    void start() override {
        ++starts;
        m_isRunning = canStart;
    }
    void stop() override { m_isRunning = false; }
    void setRecordingActive(bool active) override { isRecordingActive = active; }

private:
    bool m_isRunning = false;
};

} // namespace quillo
