#pragma once

#include <QString>

#include <cstdint>
#include <functional>
#include <optional>

namespace quillo {

/// A running application with a window.
struct RunningApplication {
    int64_t pid = 0;
    QString name;             ///< localized display name
    QString bundleIdentifier; ///< the catalogue's identifier, else the desktop file's name or the window class
    quint64 window = 0;       ///< the window that was active
    bool isTerminal = false;
    bool operator==(const RunningApplication&) const = default;
};

/// The windows of the desktop. Main thread; no call takes more than a few milliseconds.
class Applications {
public:
    virtual ~Applications() = default;

    [[nodiscard]] virtual bool isAvailable() const = 0;
    /// The application whose window is active; nullopt on an empty desktop.
    [[nodiscard]] virtual std::optional<RunningApplication> frontmost() = 0;
    /// Raises the application's window and focuses it; false when the window is gone.
    virtual bool activate(const RunningApplication& application) = 0;
};

} // namespace quillo
