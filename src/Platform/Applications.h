#pragma once

#include <QString>

#include <cstdint>
#include <functional>
#include <optional>

namespace quillo {

/// A running application with a window.
struct RunningApplication {
    int64_t pid = 0;
    QString name;             ///< localized, as a person knows it
    QString bundleIdentifier; ///< the catalogue's identifier, else the desktop file's name or the window class
    quint64 window = 0;       ///< the window that was active
    bool isTerminal = false;
    bool operator==(const RunningApplication&) const = default;
};

/// The desktop's windows. Main thread; no call takes more than a few milliseconds.
class Applications {
public:
    virtual ~Applications() = default;

    [[nodiscard]] virtual bool isAvailable() const = 0;
    /// The application whose window is active; nothing on an empty desktop.
    [[nodiscard]] virtual std::optional<RunningApplication> frontmost() = 0;
    /// Brings the application's window to the front and gives it the focus; false when it is gone.
    virtual bool activate(const RunningApplication& application) = 0;
};

} // namespace quillo
