#pragma once

#include "Features/Application/AccountState.h"

#include <QString>

namespace quillo {

/// Everything a user can request from the running application, through the tray, windows, D-Bus and with it the command
/// line. Main thread. A command returns at once; its progress shows in the recording state, in `account` or in the
/// history. Each may throw a std::exception with a text for the user, a UserError if the text is in the catalogues.
class Commands {
public:
    virtual ~Commands() = default;

    /// Begins a dictation; does nothing when one is running.
    virtual void start() = 0;
    /// Ends the dictation and delivers its text; does nothing when none is running.
    virtual void stop() = 0;
    virtual void toggle() = 0;
    /// Ends the dictation, even if its text is already awaited, and discards it.
    virtual void cancel() = 0;
    /// Inserts the text that did not arrive, otherwise the last one.
    virtual void insertAgain() = 0;
    /// The text of the last dictation; empty when there is none.
    [[nodiscard]] virtual QString lastText() const = 0;
    /// The state of the application as a JSON object. Its keys are never renamed or removed.
    [[nodiscard]] virtual QString status() const = 0;

    /// Brings the application's window to the front.
    virtual void show() = 0;
    /// Ends the program once a running dictation is on the disk.
    virtual void quit() = 0;

    [[nodiscard]] virtual AccountState account() const = 0;
    /// Opens the sign-in page in the browser; busy until its answer arrives or `cancelSignIn` is called.
    virtual void signIn() = 0;
    /// The same with the page that creates an account.
    virtual void registerAccount() = 0;
    virtual void cancelSignIn() = 0;
    /// Signs out on this machine and continues without an account.
    virtual void signOut() = 0;
    /// Deletes the account on the server and signs out. Call it only after the user has confirmed.
    virtual void deleteAccount() = 0;
    /// Takes an address of the application's own scheme: the browser's answer to a sign-in.
    virtual void openURL(const QString& url) = 0;

    // For the history record with this complete id.
    virtual void deleteRecord(const QString& id) = 0;
    /// Puts the record's audio back into the queue. An empty language means the one it was recorded with.
    virtual void retranscribeRecord(const QString& id, const QString& language) = 0;
    /// Puts the record's text on the clipboard.
    virtual void copyRecord(const QString& id) = 0;
};

} // namespace quillo
