#pragma once

#include <QString>

namespace quillo {

/// Who is signed in, as the interface shows it.
struct AccountState {
    enum class Kind {
        none,      ///< no session: the application could not get one, or the user left it
        anonymous, ///< a session without an account
        signedIn,
    };
    Kind kind = Kind::none;
    QString name;        ///< full name; may be empty
    QString email;       ///< may be empty
    bool isBusy = false; ///< a sign-in, sign-out or deletion is under way
    QString message;     ///< why the last attempt failed, in plain words; empty after a success or a cancellation

    bool operator==(const AccountState&) const = default;
};

} // namespace quillo
