#pragma once

#include <QString>

#include <stdexcept>

namespace quillo {

enum class LoginItemStatus {
    enabled,          ///< the session starts the application
    notRegistered,    ///< it does not, and neither user nor system has forbidden it
    requiresApproval, ///< the user or the session's settings switched an entry off
};

/// The case's name, as in the code.
[[nodiscard]] QString toString(LoginItemStatus status);

/// The login item could not be changed. The message names the file, the cause and the next step.
class LoginItemError : public std::runtime_error {
public:
    explicit LoginItemError(const QString& message) : std::runtime_error(message.toStdString()) {}
    [[nodiscard]] QString message() const { return QString::fromUtf8(what()); }
};

/// Whether the user's session starts the application at login. Callable from any thread, but not from two at once. Each
/// call reads the current state, because other programs change it too, and costs a few file operations.
class LoginItem {
public:
    virtual ~LoginItem() = default;
    [[nodiscard]] virtual LoginItemStatus status() = 0;
    /// Enables the login item, also after the user or another program disabled it. Changes nothing if it is enabled
    /// already. Throws LoginItemError.
    virtual void registerItem() = 0;
    /// Disables the login item. Throws LoginItemError.
    virtual void unregisterItem() = 0;
};

} // namespace quillo
