#pragma once

#include <QString>

#include <stdexcept>

namespace quillo {

enum class LoginItemStatus {
    enabled,          ///< the session starts the application
    notRegistered,    ///< it does not, and nobody said that it must not
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

/// Whether the user's session starts the application when it begins. Any thread, one at a time; each call reads the
/// present state, which other programs change too, and takes a few file operations.
class LoginItem {
public:
    virtual ~LoginItem() = default;
    [[nodiscard]] virtual LoginItemStatus status() = 0;
    /// Has the session start this program, whoever switched it off before. Changes nothing when it does already.
    /// Throws LoginItemError.
    virtual void registerItem() = 0;
    /// Has the session start it no more. Throws LoginItemError.
    virtual void unregisterItem() = 0;
};

} // namespace quillo
