#pragma once

#include "Core/UserMessage.h"

#include <QString>

namespace quillo {

/// The signed-in user, as shown in the interface.
struct AccountState {
    enum class Kind {
        none,      ///< no session: the application could not get one, or the user signed out
        anonymous, ///< a session without an account
        signedIn,
        expired, ///< the server ended the session of the account; signing in again restores it
    };
    Kind kind = Kind::none;
    QString name;        ///< full name; may be empty
    QString email;       ///< may be empty
    bool isBusy = false; ///< a sign-in, sign-out or deletion is running
    UserMessage message; ///< why the last attempt failed; empty after a success or a cancellation

    bool operator==(const AccountState&) const = default;
};

} // namespace quillo
