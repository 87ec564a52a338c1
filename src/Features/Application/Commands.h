#pragma once

#include "Features/Application/AccountState.h"

#include <QString>

namespace quillo {

/// Everything a person can ask of the running application, by whichever way: tray, windows, D-Bus and with it the
/// command line. Main thread. A command returns at once; what it begins goes on by itself and shows in the recording
/// state, in `account` or in the history. Each may throw a std::exception with words for the user: a UserError where
/// they are in the catalogues.
class Commands {
public:
    virtual ~Commands() = default;

    /// Begins a dictation; nothing when one runs.
    virtual void start() = 0;
    /// Ends the dictation and delivers its text; nothing when none runs.
    virtual void stop() = 0;
    virtual void toggle() = 0;
    /// Ends the dictation, also while its text is on the way, and discards it.
    virtual void cancel() = 0;
    /// Inserts the text that did not arrive, else the last one.
    virtual void insertAgain() = 0;
    /// The text of the last dictation; empty when there is none.
    [[nodiscard]] virtual QString lastText() const = 0;
    /// What the application is doing, as a JSON object. Its keys are never renamed or removed.
    [[nodiscard]] virtual QString status() const = 0;

    /// Brings the application's window to the front.
    virtual void show() = 0;
    /// Ends the program when what is being said is on the disk.
    virtual void quit() = 0;

    [[nodiscard]] virtual AccountState account() const = 0;
    /// Opens the browser's sign-in page and is busy until its answer arrives or `cancelSignIn` is called.
    virtual void signIn() = 0;
    /// The same with the page that makes an account.
    virtual void registerAccount() = 0;
    virtual void cancelSignIn() = 0;
    /// Forgets the account on this machine and goes on without one.
    virtual void signOut() = 0;
    /// Removes the account from the server and signs out. The user has confirmed.
    virtual void deleteAccount() = 0;
    /// Takes an address of the application's own scheme: the browser's answer to a sign-in.
    virtual void openURL(const QString& url) = 0;

    // On the record of the history with this id, which is complete.
    virtual void deleteRecord(const QString& id) = 0;
    /// Puts the record's audio back into the queue. An empty language means the one it was recorded with.
    virtual void retranscribeRecord(const QString& id, const QString& language) = 0;
    /// Puts the record's text on the clipboard.
    virtual void copyRecord(const QString& id) = 0;
};

} // namespace quillo
