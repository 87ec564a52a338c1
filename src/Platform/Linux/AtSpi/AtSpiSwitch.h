#pragma once

#include <QObject>

#include <functional>

namespace quillo {

/// Remembers across runs whether Quillo switched the desktop's accessibility on, because a killed run cannot switch it
/// off again. Both may be empty.
struct AtSpiSwitchMemory {
    std::function<bool()> isOurs;
    std::function<void(bool)> setOurs;
};

/// The desktop's accessibility switch ("IsEnabled" of org.a11y.Status), which desktops store. While it is off, toolkits
/// tell nothing about their fields. Main thread.
class AtSpiSwitch final : public QObject {
public:
    explicit AtSpiSwitch(AtSpiSwitchMemory memory) : m_memory(std::move(memory)) {}
    /// Switches off what this object switched on, unless a screen reader runs now. Waits at most a second.
    ~AtSpiSwitch() override;
    AtSpiSwitch(const AtSpiSwitch&) = delete;
    AtSpiSwitch& operator=(const AtSpiSwitch&) = delete;

    /// Waits for nothing; failures are logged.
    void turnOn();

private:
    void setOurs(bool isOurs);

    AtSpiSwitchMemory m_memory;
    bool m_isOurs = false;
};

} // namespace quillo
