#pragma once

#include "Platform/LoginItem.h"

#include <QStringList>

#include <memory>

namespace quillo {

/// What the login item starts, and where sessions look for it.
struct AutostartPlace {
    /// The program's own absolute path, and the arguments it is started with at login.
    QString program;
    QStringList arguments;
    /// The user's configuration folder, and those of the system in order of precedence. Absolute paths.
    QString userFolder;
    QStringList systemFolders;
    /// The names of the running desktop, for OnlyShowIn and NotShowIn.
    QStringList desktops;

    /// Taken from this process: its program, XDG_CONFIG_HOME, XDG_CONFIG_DIRS and XDG_CURRENT_DESKTOP. Needs a
    /// QCoreApplication.
    static AutostartPlace ofThisProcess(QStringList arguments = {});
};

/// The login item as the entry "autostart/org.quillo.Quillo.desktop" (Desktop Application Autostart Specification).
///
/// Edits by the user or other programs are preserved: only the keys that control whether and what the entry starts are
/// changed, and a command written by the user is kept as long as its program exists. To disable it, an unedited entry
/// is removed; an edited one, or one that overrides a system-wide entry, is switched off (Hidden=true).
std::unique_ptr<LoginItem> createAutostartLoginItem(AutostartPlace place);

} // namespace quillo
